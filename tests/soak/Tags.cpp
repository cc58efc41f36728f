#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>
#include <orvane/transport/S3Uploader.h>

#include "Work.h"
#include "support/Run.h"

#include <algorithm>
#include <vector>

namespace orvane::soak {
namespace {

// By and by each asset has each tag, in ever other confidences. No tag contains another one.
constexpr int kTags = 41;
std::string tagOf(int turn) { return "etichetta " + std::to_string(100 + turn % kTags); }
double confidenceOf(int turn) { return turn % 1'000 / 1'000.0; }

void enter(Ledger& ledger, const std::string& deviceUUID, const std::string& asset,
           const std::string& tag, double confidence) {
  ledger["tag " + deviceUUID + " " + asset + " " + tag] = std::to_string(confidence);
}

}  // namespace

Ledger storedTags(const std::string& deviceUUID) {
  const auto tagsByAsset = TagDatabase::shared().exportAllTagsForDevice(deviceUUID).value();
  Ledger ledger;
  for (const auto& [asset, tags] : tagsByAsset) {
    for (const auto& [tag, confidence] : tags) enter(ledger, deviceUUID, asset, tag, confidence);
  }
  return ledger;
}

Ledger writeTags(Findings& findings, const std::stop_token& stop) {
  auto& database = TagDatabase::shared();
  const auto own = DeviceUUID::shared().uuid();
  Ledger ledger;
  for (int turn = 0; !stop.stop_requested(); ++turn, pause()) {
    const auto asset = assetId(turn);
    std::vector<TagWithConfidence> tags = {{tagOf(turn), confidenceOf(turn)}};
    if (turn % 2 == 0) tags.push_back({tagOf(turn + 1), confidenceOf(turn)});
    const auto written = retried(findings, "tag writes", [&] {
      return turn % 2 == 0 ? database.upsertTags(asset, tags, own)
                           : database.upsertTag(asset, tags[0].tag, tags[0].confidence, own);
    });
    if (!written) continue;
    const auto found =
        retried(findings, "tag reads", [&] { return database.getTagsForAsset(asset); });
    for (const auto& tag : tags) {
      enter(ledger, own, asset, tag.tag, tag.confidence);
      findings.expect(found && std::ranges::find(*found, tag) != found->end(),
                      asset + " has lost " + tag.tag);
    }
  }
  return ledger;
}

void exchangeTags(Findings& findings, const S3Config& config) {
  auto& service = TagSyncService::shared();
  static_cast<void>(retried(findings, "tag uploads",
                            [&] { return testing::run(service.uploadTagsToS3(config)); }));
  const auto applied = retried(findings, "tag downloads",
                               [&] { return testing::run(service.downloadAllRemoteTags(config)); });
  if (applied && *applied > 0) findings.count("tag downloads that brought tags");
}

Ledger playSecondDevice(Findings& findings, const S3Config& config, const std::stop_token& stop) {
  Ledger ledger;
  for (int turn = 0; !stop.stop_requested(); ++turn, pause()) {
    std::string object;
    for (int i = 0; i < kAssets * kTags; ++i) {
      object += R"({"s3_key":")" + objectName(i) + R"(","tags":[{"tag":")" + tagOf(i) +
                R"(","confidence":)" + std::to_string(confidenceOf(turn)) + "}]}\n";
      enter(ledger, kSecondDevice, assetId(i), tagOf(i), confidenceOf(turn));
    }
    const auto bytes = bytesOf(object);
    static_cast<void>(retried(findings, "tag objects of the second device", [&] {
      return testing::run(S3Uploader::uploadData(
          {bytes.begin(), bytes.end()}, std::string("tags/") + kSecondDevice + "/tags.jsonl",
          "application/x-jsonlines", config));
    }));
  }
  return ledger;
}

}  // namespace orvane::soak
