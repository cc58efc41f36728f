#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>

#include "Work.h"
#include "support/Run.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <filesystem>
#include <future>
#include <random>
#include <utility>
#include <vector>

namespace orvane::soak {
namespace {

constexpr const char* kContentType = "image/jpeg";

// In turns: the bytes in memory, the whole file, the uploader. It sends every third one in parts.
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

class Uploads {
 public:
  Uploads(Findings& findings, const S3Config& config) : findings_(findings), config_(config) {
    for (int i = 0; i < kAssets; ++i) {
      file({assetId(i), objectName(i), UploadStatus::pending, 0, 0});
    }
  }

  void upload(int turn, S3MultipartUploader& uploader);
  [[nodiscard]] const Ledger& ledger() const { return ledger_; }

 private:
  void file(const UploadRecord& record);
  Result<void> send(const UploadRecord& record, const std::string& content,
                    S3MultipartUploader& uploader);

  Findings& findings_;
  const S3Config& config_;
  const std::filesystem::path file_ = testing::testDirectory() / "file";
  Ledger ledger_;
  std::int64_t bytesCounted_ = 0;
};

void Uploads::file(const UploadRecord& record) {
  auto& text = ledger_["record " + record.id()] = record.encodeJson().value();
  UploadStore::shared().upsert(record);
  const auto stored = UploadStore::shared().record(record.id());
  findings_.expect(stored && stored->encodeJson() == text, record.id() + " is not as filed");
}

void Uploads::upload(int turn, S3MultipartUploader& uploader) {
  const auto content = contentOf(turn);
  const auto size = std::ssize(content);
  testing::writeFile(file_, content);
  UploadRecord record(assetId(turn), objectName(turn), UploadStatus::uploading, 0, size);
  record.tagsVersion = turn;  // Tells the content.
  const auto result = retried(findings_, "uploads", [&] {
    file(record);
    record.status = UploadStatus::retrying;
    ++record.retryCount;
    return send(record, content, uploader);
  });
  record.status = result ? UploadStatus::completed : UploadStatus::failed;
  if (result) {
    ledger_["bytes"] = std::to_string(bytesCounted_ += size);
    BandwidthStatsStore::shared().addCompletedBytes(size);
  } else {
    record.errorMessage = result.error().description();
  }
  file(record);
}

Result<void> Uploads::send(const UploadRecord& record, const std::string& content,
                           S3MultipartUploader& uploader) {
  if (record.tagsVersion % 3 == 0) {
    const auto bytes = bytesOf(content);
    const auto eTag = testing::run(S3Uploader::uploadData(
        {bytes.begin(), bytes.end()}, record.filename(), kContentType, config_));
    if (!eTag) return std::unexpected(eTag.error());
    return {};
  }
  std::promise<Result<void>> done;
  const auto completion = [&done](Result<void> result) { done.set_value(std::move(result)); };
  if (record.tagsVersion % 3 == 1) {
    S3Uploader::upload(file_, record.filename(), kContentType, config_, {}, completion);
  } else {
    uploader.upload(file_, record.filename(), kContentType, {}, completion);
  }
  return done.get_future().get();
}

}  // namespace

Ledger uploadFiles(Findings& findings, const S3Config& config, const std::stop_token& stop) {
  Uploads uploads(findings, config);
  for (int turn = 0; !stop.stop_requested();) {
    // Sessions come and go with their connections.
    S3MultipartUploader uploader(config);
    for (int i = 0; i < kAssets && !stop.stop_requested(); ++i) uploads.upload(turn++, uploader);
  }
  return uploads.ledger();
}

Ledger storedUploads() {
  Ledger ledger = {
      {"bytes", std::to_string(BandwidthStatsStore::shared().totalBytesTransferred())}};
  for (const auto& record : UploadStore::shared().allRecords()) {
    ledger["record " + record.id()] = record.encodeJson().value();
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
    const auto listed = retried(findings, "listings", [&] {
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
