#pragma once

#include <orvane/Error.h>
#include <orvane/transport/S3Config.h>

#include "Rules.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace backup {

enum ExitStatus { kSuccess = 0, kSomethingFailed = 1, kUsage = 2, kInterrupted = 130 };

/// What the user must put right before anything can begin; ends the program with kUsage. Any other
/// exception ends it with kSomethingFailed.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The value, or the error as an exception.
template <class T>
T valueOf(orvane::Result<T> result) {
  if (!result) throw std::runtime_error(explanation(result.error()));
  return *std::move(result);
}

// What the program can be asked for, each in a source of its own. The result is the exit status.

using Path = std::filesystem::path;

int runCommand(const Path& folder, const orvane::S3Config& config, bool retryAll);
int statusCommand();
int verifyCommand(const orvane::S3Config& config, bool repairs);
/// Without a folder: the one that was backed up last.
int tagCommand(const std::optional<Path>& folder, bool again);
int searchCommand(const std::string& word);
int topCommand();
int tagsCommand(const std::string& photo);
int syncCommand(const orvane::S3Config& config);

struct RestoreOptions {
  std::optional<std::string> only;  ///< A pattern of the shell's kind; its "*" takes "/" as well.
  std::optional<std::string> tag;
  bool overwrites = false;
};
int restoreCommand(const Path& folder, const orvane::S3Config& config,
                   const RestoreOptions& options);

/// Merges the tags that the store holds into the database, as `sync` does.
void takeOverTags(const orvane::S3Config& config);

}  // namespace backup
