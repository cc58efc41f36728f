#include "Tags.h"

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>
#include <orvane/transport/S3Uploader.h>

#include <algorithm>
#include <vector>

#include "Uploads.h"
#include "support/Run.h"

namespace orvane::soak {
namespace {

constexpr int kTags = 40;

// By and by each asset has each tag, in ever other confidences. No tag contains another one.
int assetOf(int turn) { return turn * 5 % kAssets; }
std::string tagOf(int turn) { return "etichetta " + std::to_string(100 + turn * 7 % kTags); }
double confidenceOf(int turn) { return turn % 1'000 / 1'000.0; }

std::string tagLine(const std::string& deviceUUID, const std::string& asset, const std::string& tag,
                    double confidence) {
  return deviceUUID + " " + asset + " " + tag + " " + std::to_string(confidence);
}

/// The form that devices exchange.
Bytes tagObject(const TagLedger& tags) {
  std::string text;
  for (const auto& [key, confidence] : tags) {
    text += R"({"s3_key":")" + objectName(key.first) + R"(","tags":[{"tag":")" + key.second +
            R"(","confidence":)" + std::to_string(confidence) + "}]}\n";
  }
  const auto bytes = bytesOf(text);
  return {bytes.begin(), bytes.end()};
}

}  // namespace

Lines expectedTags(const std::string& deviceUUID, const TagLedger& tags) {
  Lines lines;
  for (const auto& [key, confidence] : tags) {
    lines.insert(tagLine(deviceUUID, assetId(key.first), key.second, confidence));
  }
  return lines;
}

Lines storedTags(const std::string& deviceUUID) {
  const auto tagsByAsset = TagDatabase::shared().exportAllTagsForDevice(deviceUUID).value();
  Lines lines;
  for (const auto& [asset, tags] : tagsByAsset) {
    for (const auto& [tag, confidence] : tags) {
      lines.insert(tagLine(deviceUUID, asset, tag, confidence));
    }
  }
  return lines;
}

TagLedger writeTags(Findings& findings, const std::stop_token& stop) {
  auto& database = TagDatabase::shared();
  const auto own = DeviceUUID::shared().uuid();
  TagLedger ledger;
  for (int turn = 0; !stop.stop_requested(); ++turn, pause(stop)) {
    const auto asset = assetId(assetOf(turn));
    std::vector<TagWithConfidence> tags = {{tagOf(turn), confidenceOf(turn)}};
    if (turn % 2 == 0) tags.push_back({tagOf(turn + 1), confidenceOf(turn)});
    const auto written = retried(findings, "tag writes", [&](std::int64_t) {
      return turn % 2 == 0 ? database.upsertTags(asset, tags, own)
                           : database.upsertTag(asset, tags[0].tag, tags[0].confidence, own);
    });
    if (!written) continue;
    for (const auto& [tag, confidence] : tags) ledger[{assetOf(turn), tag}] = confidence;

    const auto found = retried(findings, "tag searches", [&](std::int64_t) {
      return database.searchAssetsByTag(tagOf(turn));
    });
    findings.expect(found && std::ranges::find(*found, asset) != found->end(),
                    asset + " is not found by " + tagOf(turn));
  }
  return ledger;
}

void exchangeTagsOnce(Findings& findings, const S3Config& config) {
  auto& service = TagSyncService::shared();
  static_cast<void>(retried(findings, "tag uploads", [&](std::int64_t) {
    return testing::run(service.uploadTagsToS3(config));
  }));
  const auto applied = retried(findings, "tag downloads", [&](std::int64_t) {
    return testing::run(service.downloadAllRemoteTags(config));
  });
  if (applied && *applied > 0) findings.count("tag downloads that brought tags");
}

void exchangeTags(Findings& findings, const S3Config& config, const std::stop_token& stop) {
  for (; !stop.stop_requested(); pause(stop)) exchangeTagsOnce(findings, config);
}

TagLedger playSecondDevice(Findings& findings, const S3Config& config,
                           const std::string& deviceUUID, const std::stop_token& stop) {
  TagLedger ledger;
  for (int turn = 0; !stop.stop_requested(); ++turn, pause(stop)) {
    ledger[{assetOf(turn), tagOf(turn)}] = confidenceOf(turn);
    static_cast<void>(retried(findings, "tag objects of the second device", [&](std::int64_t) {
      return testing::run(S3Uploader::uploadData(tagObject(ledger),
                                                 "tags/" + deviceUUID + "/tags.jsonl",
                                                 "application/x-jsonlines", config));
    }));
  }
  return ledger;
}

}  // namespace orvane::soak
