#pragma once

#include <orvane/transport/S3Config.h>

#include "Findings.h"
#include "support/ObjectStore.h"

#include <chrono>
#include <stop_token>
#include <string>
#include <thread>

namespace orvane::soak {

/// How many assets there are; they change again and again, so that what is kept does not grow.
inline constexpr int kAssets = 12;
/// The asset of a turn.
[[nodiscard]] inline std::string assetId(int turn) {
  return "asset-" + std::to_string(turn % kAssets);
}
/// Its object's key behind the prefix.
[[nodiscard]] inline std::string objectName(int turn) {
  return "media/IMG " + std::to_string(turn % kAssets) + ".jpg";
}
inline constexpr const char* kSecondDevice = "00000000-0000-4000-8000-000000000002";

/// Lets others have the machine between two turns.
inline void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }

// What the threads do until they are stopped; those that write return what must be there then.

/// Uploads, in each of the ways there are, and keeps the books on it.
Ledger uploadFiles(Findings& findings, const S3Config& config, const std::stop_token& stop);
/// Lists: whatever a record calls completed must be in the bucket.
void listObjects(Findings& findings, const S3Config& config, const std::stop_token& stop);
/// Writes this device's tags and reads them back.
Ledger writeTags(Findings& findings, const std::stop_token& stop);
/// Exchanges tags with other devices, once: one upload and one download.
void exchangeTags(Findings& findings, const S3Config& config);
/// Plays a second device: puts its tag object, ever anew, straight into the store.
Ledger playSecondDevice(Findings& findings, const S3Config& config, const std::stop_token& stop);

// What this process finds in its files.
[[nodiscard]] Ledger storedUploads();
[[nodiscard]] Ledger storedTags(const std::string& deviceUUID);

/// Each object that a completed record names must be in the bucket with its content.
void expectObjects(Findings& findings, const testing::ObjectStore& store);

}  // namespace orvane::soak
