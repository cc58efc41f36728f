// The command line: what is asked for, where the store is, where the records are kept.
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/transport/S3Config.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

#include "BackupRun.h"
#include "Display.h"
#include "Folder.h"

namespace {

namespace fs = std::filesystem;
using namespace backup;
using orvane::HostApplication;
using orvane::S3Config;

enum ExitStatus { kSuccess = 0, kSomethingFailed = 1, kUsage = 2, kInterrupted = 130 };

constexpr auto kFooter =
    "The configuration is one JSON object with the texts bucket, region, accessKey, secretKey,\n"
    "prefix (put before every key; may be empty) and endpoint (such as https://s3.example.org).\n\n"
    "Exit status: 0 all there, 1 something failed, 2 usage or configuration, 130 interrupted.";

/// What the user must put right before anything can begin.
using Refusal = std::runtime_error;

S3Config readConfig(const fs::path& file) {
  const std::string name = printable(file.string());
  std::ifstream stream(file, std::ios::binary);
  if (!stream || fs::is_directory(file)) throw Refusal("cannot read the configuration " + name);
  auto config = S3Config::fromJson(std::string(std::istreambuf_iterator<char>(stream), {}));
  if (!config) {
    throw Refusal(name + " must be a JSON object with the texts bucket, region, accessKey, " +
                  "secretKey, prefix and endpoint");
  }
  if (!config->isValid() || !config->url("")) {
    throw Refusal(name + ": only the prefix may be empty, and the endpoint must be a URL");
  }
  return std::move(*config);
}

/// Tells the engine who uses it and where it keeps its files: in `state`, or else in the user's
/// own data folder.
void prepareState(const std::optional<fs::path>& state) {
  orvane::HostOptions options{.identifier = "org.orvane.backup"};
  if (state) options.dataDirectory = fs::absolute(*state);
  const auto configured = HostApplication::configure(std::move(options));
  if (!configured) throw Refusal(configured.error().description());
  // The store reports no failure to write; a backup that forgets is better refused.
  const auto folder = HostApplication::applicationSupportDirectory();
  if (!folder) throw Refusal("there is no place for the records: set HOME or give --state");
  std::error_code error;
  fs::create_directories(*folder, error);
  if (error || access(folder->c_str(), W_OK) != 0) {
    throw Refusal("cannot write the records in " + printable(folder->string()));
  }
}

std::atomic<bool> stop = false;
static_assert(std::atomic<bool>::is_always_lock_free);  // What a signal handler may touch.

/// The first signal lets uploads under way end, the second one does not.
extern "C" void handleStopSignal(int) {
  if (stop.exchange(true)) _exit(kInterrupted);
}

void printSummary(const Summary& summary, double seconds) {
  std::printf("Done in %.1f s: %zu files uploaded (%s), %zu already there, %zu failed.\n", seconds,
              summary.uploaded, byteText(summary.bytes).c_str(), summary.alreadyThere,
              summary.failed);
  if (summary.left > 0) std::printf("Stopped: %zu files left for the next run.\n", summary.left);
}

int runCommand(const fs::path& path, const S3Config& config) {
  if (!fs::is_directory(path)) throw Refusal(printable(path.string()) + " is not a folder");
  std::signal(SIGINT, handleStopSignal);
  std::signal(SIGTERM, handleStopSignal);
  std::cout << "Backing up " << printable(path.string()) << " to bucket " << config.bucket << " at "
            << config.host() << '\n'
            << std::flush;

  const auto begun = std::chrono::steady_clock::now();
  const Summary summary = BackupRun(config, stop).run(listFolder(path));
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begun;
  printSummary(summary, time.count());
  if (stop) return kInterrupted;
  return summary.failed > 0 ? kSomethingFailed : kSuccess;
}

int statusCommand() {
  std::map<orvane::UploadStatus, std::size_t> counts;
  for (const auto& record : orvane::UploadStore::shared().allRecords()) ++counts[record.status];
  for (const auto& [status, count] : counts) {
    std::cout << uploadStatusText(status) << ": " << count << '\n';
  }
  if (counts.empty()) std::cout << "no records yet\n";
  return kSuccess;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Backs a folder up to an S3 object store.", "orvane-backup");
  app.require_subcommand(1);
  app.footer(kFooter);
  fs::path folder;
  fs::path config;
  std::optional<fs::path> state;
  auto* run = app.add_subcommand("run", "Upload what is new or changed in a folder");
  auto* status = app.add_subcommand("status", "Show how many files are in which state");
  run->add_option("FOLDER", folder, "The folder to back up")->required();
  run->add_option("--config", config, "Where the object store is (JSON file)")->required();
  for (auto* command : {run, status}) {
    command->add_option("--state", state, "Folder for the records, one per backup");
  }
  try {
    app.parse(argc, argv);
    prepareState(state);
    return run->parsed() ? runCommand(folder, readConfig(config)) : statusCommand();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kSuccess : kUsage;
  } catch (const std::exception& error) {
    std::cerr << "orvane-backup: " << error.what() << '\n';
    return kUsage;
  }
}
