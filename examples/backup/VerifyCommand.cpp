#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/UnfinishedUploads.h>

#include "Commands.h"
#include "Display.h"
#include "Objects.h"
#include "Rules.h"
#include "Setup.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace backup {
namespace {

/// Whether the engine's listing leaves such a key out, so that nothing can be said about it.
bool hasLineBreak(const std::string& key) {
  constexpr std::array kBreaks = {"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"};
  return std::ranges::any_of(kBreaks, [&key](const char* text) { return key.contains(text); });
}

/// Prints a line for each name of one kind.
void report(std::string_view word, const std::set<std::string>& names) {
  for (const auto& name : names) std::cout << lineText(word, name);
}

/// Names the uploads that were begun and are not this state's own; aborts the old ones if wanted.
void checkUnfinishedUploads(const orvane::S3Config& config, bool repairs) {
  constexpr std::chrono::days kOld(1);  // A younger one may be another device's.
  const auto uploads = orvane::listUnfinishedUploads(config, config.prefix);
  if (!uploads) {
    std::cerr << "Unfinished uploads are not known: " << printable(explanation(uploads.error()))
              << '\n';
    return;
  }
  std::set<std::string> own;
  for (const auto& state : orvane::MultipartUploadStore::shared().allStates()) {
    own.insert(state.uploadId());
  }
  for (const auto& [key, uploadId, begun] : *uploads) {
    if (own.contains(uploadId) || !key.starts_with(config.prefix)) continue;
    const auto name = key.substr(config.prefix.size());
    const bool isOld = std::chrono::system_clock::now() - begun > kOld;
    if (repairs && isOld) orvane::S3Uploader::abortMultipartUpload(name, uploadId, config);
    const char* const advice = repairs ? ": the store was told to abort it"
                                       : ": begun more than a day ago; --repair aborts it";
    std::cout << lineText("unfinished", name, isOld ? advice : ": begun within a day");
  }
}

}  // namespace

int verifyCommand(const orvane::S3Config& config, bool repairs) {
  lockState();
  requireSameStore(config);
  auto objects = valueOf(listObjects(config));
  std::size_t asRecorded = 0;
  std::set<std::string> missing;
  std::set<std::string> changed;
  std::set<std::string> unknown;
  std::set<std::string> unlisted;
  std::vector<orvane::UploadRecord> pending;
  for (auto& record : orvane::UploadStore::shared().allRecords()) {
    const auto object = objects.extract(record.filename());
    if (record.status != orvane::UploadStatus::completed) continue;
    if (object.empty() && hasLineBreak(record.filename())) {
      unlisted.insert(record.id());
    } else if (!object.empty() && record.eTag.value_or(object.mapped()) == object.mapped()) {
      ++asRecorded;
    } else {
      (object.empty() ? missing : changed).insert(record.id());
      record.status = orvane::UploadStatus::pending;
      record.eTag.reset();
      pending.push_back(std::move(record));
    }
  }
  for (const auto& [key, eTag] : objects) {
    if (!key.starts_with("tags/")) unknown.insert(key);
  }
  report("missing", missing);
  report("changed", changed);
  report("unknown", unknown);
  report("unlisted", unlisted);
  std::cout << countText(asRecorded, "object") << " as recorded, " << missing.size() << " missing, "
            << changed.size() << " changed, " << unknown.size() << " unknown";
  if (!unlisted.empty()) {
    std::cout << ", " << unlisted.size() << " unlisted (stores list no name with a line break)";
  }
  if (!pending.empty()) {
    std::cout << (repairs ? "; the next run sends what is missing or changed"
                          : "; verify --repair lets the next run send them again");
  }
  std::cout << '\n';
  checkUnfinishedUploads(config, repairs);
  const bool asItShouldBe = pending.empty();
  if (repairs) orvane::UploadStore::shared().upsertBatch(std::move(pending));
  return asItShouldBe ? kSuccess : kSomethingFailed;
}

}  // namespace backup
