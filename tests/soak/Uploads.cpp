#include "Uploads.h"

#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <random>
#include <utility>
#include <vector>

#include "support/Run.h"
#include "support/TemporaryDirectory.h"

namespace orvane::soak {
namespace {

constexpr const char* kContentType = "image/jpeg";

// In turns: the bytes in memory, the whole file, the uploader, which sends every third file in
// parts.
enum class Way { data, file, uploader };
Way wayOf(std::int64_t turn) { return static_cast<Way>(turn % 3); }
bool isLarge(std::int64_t turn) { return turn % 9 == 2; }

std::string contentOf(std::int64_t turn) {
  constexpr std::size_t kSmallSizes = 200'000;
  std::mt19937_64 random(static_cast<std::uint64_t>(turn));
  std::string text((isLarge(turn) ? S3MultipartUploader::chunkSize : 0) + random() % kSmallSizes,
                   '\0');
  std::ranges::generate(text, [&random] { return static_cast<char>(random()); });
  return text;
}

std::vector<UploadRecord> completedRecords() {
  auto records = UploadStore::shared().allRecords();
  std::erase_if(records, [](const auto& one) { return one.status != UploadStatus::completed; });
  return records;
}

}  // namespace

std::string assetId(int turn) { return "asset-" + std::to_string(turn % kAssets); }
std::string objectName(int turn) { return "media/IMG " + std::to_string(turn % kAssets) + ".jpg"; }

Uploads::Uploads(Findings& findings, S3Config config)
    : findings_(findings), config_(std::move(config)), file_(testing::testDirectory() / "file") {
  for (int i = 0; i < kAssets; ++i) file({assetId(i), objectName(i), UploadStatus::pending, 0, 0});
}

void Uploads::run(const std::stop_token& stop) {
  for (int turn = 0; !stop.stop_requested();) {
    // Sessions come and go with their connections.
    S3MultipartUploader uploader(config_);
    for (int i = 0; i < kAssets && !stop.stop_requested(); ++i) upload(turn++, uploader);
  }
}

void Uploads::file(const UploadRecord& record) {
  ledger_["record " + record.id()] = record.encodeJson().value();
  UploadStore::shared().upsert(record);
}

void Uploads::upload(int turn, S3MultipartUploader& uploader) {
  const auto content = contentOf(turn);
  const auto size = std::ssize(content);
  testing::writeFile(file_, content);
  UploadRecord record(assetId(turn), objectName(turn), UploadStatus::uploading, 0, size);
  record.tagsVersion = turn;  // Tells the content.
  const auto begun = std::chrono::steady_clock::now();
  const auto result = retried(findings_, "uploads", [&](std::int64_t retries) {
    record.retryCount = retries;
    if (retries > 0) record.status = UploadStatus::retrying;
    file(record);
    return send(record, content, uploader);
  });
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begun;
  record.status = result ? UploadStatus::completed : UploadStatus::failed;
  if (result) {
    ledger_["bytes"] = std::to_string(bytesCounted_ += size);
    BandwidthStatsStore::shared().addCompletedBytes(size);
    BandwidthStatsStore::shared().addSample(static_cast<double>(size) / time.count());
  } else {
    record.errorMessage = result.error().description();
  }
  file(record);
}

Result<void> Uploads::send(const UploadRecord& record, const std::string& content,
                           S3MultipartUploader& uploader) {
  const auto way = wayOf(record.tagsVersion);
  if (way == Way::data) {
    const auto bytes = bytesOf(content);
    const auto eTag = testing::run(S3Uploader::uploadData(
        {bytes.begin(), bytes.end()}, record.filename(), kContentType, config_));
    if (!eTag) return std::unexpected(eTag.error());
    return {};
  }
  std::promise<Result<void>> done;
  const auto completion = [&done](Result<void> result) { done.set_value(std::move(result)); };
  if (way == Way::file) {
    S3Uploader::upload(file_, record.filename(), kContentType, config_, {}, completion);
  } else {
    const auto progress = [&](std::int64_t sent, std::int64_t) {
      if (isLarge(record.tagsVersion)) partsSent(record, sent);
    };
    uploader.upload(file_, record.filename(), kContentType, progress, completion);
  }
  return done.get_future().get();
}

void Uploads::partsSent(const UploadRecord& record, std::int64_t bytes) {
  MultipartState state(record.id(), "unknown", record.filename(), kContentType, 2,
                       record.totalBytes, {{"1", ""}});
  if (bytes == record.totalBytes) state.completedParts["2"] = "";
  ledger_["parts " + record.id()] = std::to_string(state.completedParts.size());
  MultipartUploadStore::shared().save(std::move(state));
}

Ledger storedUploads() {
  Ledger ledger = {
      {"bytes", std::to_string(BandwidthStatsStore::shared().totalBytesTransferred())}};
  for (const auto& record : UploadStore::shared().allRecords()) {
    ledger["record " + record.id()] = record.encodeJson().value();
  }
  for (const auto& state : MultipartUploadStore::shared().allStates()) {
    ledger["parts " + state.assetId()] = std::to_string(state.completedParts.size());
  }
  return ledger;
}

void expectObjects(Findings& findings, const testing::ObjectStore& store) {
  for (const auto& record : completedRecords()) {
    findings.expect(store.get(store.prefix() + record.filename()) == contentOf(record.tagsVersion),
                    "the object of " + record.id() + " is not what was uploaded");
    findings.count("objects checked in the bucket");
  }
  findings.count("uploads in parts that nobody could abort",
                 store.unfinishedUploads(store.prefix()).size());
}

void listObjects(Findings& findings, const S3Config& config, const std::stop_token& stop) {
  for (; !stop.stop_requested(); pause()) {
    const auto records = completedRecords();
    const auto listed = retried(findings, "listings", [&](std::int64_t) {
      return TalvexAPIService::shared().listObjects(config, config.prefix);
    });
    if (!listed) continue;
    for (const auto& record : records) {
      const auto key = config.prefix + record.filename();
      findings.expect(std::ranges::find(*listed, key, &KeyETagPair::key) != listed->end(),
                      record.id() + " is completed and not listed");
    }
  }
}

}  // namespace orvane::soak
