#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/Preferences.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncError.h>
#include <orvane/tagsync/TagSyncService.h>
#include <orvane/transport/TalvexAPIService.h>

#include "Commands.h"
#include "Display.h"
#include "Setup.h"
#include "Tasks.h"

#include <iostream>

namespace backup {
namespace {

using orvane::Preferences;
using orvane::TagSyncError;
using orvane::TagSyncService;
using orvane::TalvexAPIService;

constexpr auto kRecordsKey = "records_at_last_sync";

bool isNothingThere(const orvane::Error& error) {
  const auto* failure = error.as<TagSyncError>();
  return failure != nullptr && *failure == TagSyncError::downloadFailed("HTTP error: 404");
}

/// This device's own tags, should its database be new.
Task restore(orvane::S3Config config) {
  const auto device = deviceIdentity();
  if (!valueOf(openTags().exportAllTagsForDevice(device)).empty()) co_return;
  const auto restored = co_await TagSyncService::shared().downloadTagsFromS3(config);
  if (!restored && isNothingThere(restored.error())) co_return;
  const auto count = valueOf(restored);
  std::cout << "Restored " << countText(count, "tag") << " of this device\n";
}

Task synchronise(orvane::S3Config config, bool publishes) {
  co_await restore(config);
  if (publishes) {
    const auto published = valueOf(co_await TagSyncService::shared().uploadTagsToS3(config));
    std::cout << "Published the tags of " << countText(published.tagCount, "photo") << '\n';
  }
  const auto merged = valueOf(co_await TagSyncService::shared().downloadAllRemoteTags(config));
  std::cout << "Merged " << countText(merged, "tag") << " from other devices\n";
}

/// Tags of photos that had no record here yet were passed over. When records have come since, every
/// device's tags are read again.
void forgetPassedOver(const orvane::S3Config& config, std::int64_t records) {
  if (Preferences::shared().integer(kRecordsKey) == records) return;
  const std::string folder = config.prefix + "tags/";
  for (const auto& object : valueOf(TalvexAPIService::shared().listObjects(config, folder))) {
    // A store may list anything.
    if (!object.key.starts_with(folder)) continue;
    const auto device = object.key.substr(folder.size(), object.key.rfind('/') - folder.size());
    valueOf(openTags().updateRemoteETag(device, ""));
  }
}

void exchangeTags(const orvane::S3Config& config, bool publishes) {
  const std::int64_t records = std::ssize(orvane::UploadStore::shared().allRecords());
  forgetPassedOver(config, records);
  runTasks(1, [&] { return synchronise(config, publishes); });
  Preferences::shared().set(kRecordsKey, records);
}

}  // namespace

int syncCommand(const orvane::S3Config& config) {
  lockState();
  requireSameStore(config);
  exchangeTags(config, true);
  return kSuccess;
}

void takeOverTags(const orvane::S3Config& config) { exchangeTags(config, false); }

}  // namespace backup
