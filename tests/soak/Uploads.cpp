#include "Uploads.h"

#include <openssl/evp.h>
#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/Digest.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <iterator>
#include <random>
#include <string_view>
#include <utility>

#include "support/Run.h"
#include "support/TemporaryDirectory.h"

namespace orvane::soak {
namespace {

constexpr int kTurnsPerLargeFile = 8;
constexpr std::size_t kSmallSizes = 200'000;
constexpr const char* kContentType = "image/jpeg";
constexpr auto kChunk = static_cast<std::size_t>(S3MultipartUploader::chunkSize);

std::string contentOf(int turn) {
  std::mt19937_64 random(static_cast<std::uint64_t>(turn));
  const bool isLarge = turn % kTurnsPerLargeFile == 0;
  std::string text((isLarge ? kChunk : 0) + random() % kSmallSizes, '\0');
  std::ranges::generate(text, [&random] { return static_cast<char>(random()); });
  return text;
}

std::string md5(std::string_view text) {
  std::string digest(16, '\0');
  EVP_Q_digest(nullptr, "MD5", nullptr, text.data(), text.size(),
               reinterpret_cast<unsigned char*>(digest.data()), nullptr);
  return digest;
}

/// The ETag that the store gives to what it has received.
std::string eTagOf(std::string_view content) {
  if (content.size() < kChunk) return platform::hexString(bytesOf(md5(content)));
  const auto parts = md5(content.substr(0, kChunk)) + md5(content.substr(kChunk));
  return platform::hexString(bytesOf(md5(parts))) + "-2";
}

std::string stateLine(const std::string& id, std::int64_t parts) {
  return id + ": " + std::to_string(parts) + " parts";
}

std::string bytesLine(std::int64_t count) { return std::to_string(count) + " bytes"; }

}  // namespace

std::string assetId(int number) { return "asset-" + std::to_string(number); }
std::string objectName(int number) { return "media/IMG " + std::to_string(number) + ".jpg"; }

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
  records_.insert_or_assign(record.id(), record);
  UploadStore::shared().upsert(record);
}

void Uploads::upload(int turn, S3MultipartUploader& uploader) {
  const int asset = turn % kAssets;
  const auto content = contentOf(turn);
  const auto size = std::ssize(content);
  testing::writeFile(file_, content);
  UploadRecord record(assetId(asset), objectName(asset), UploadStatus::uploading, 0, size);
  record.eTag = eTagOf(content);
  const auto begun = std::chrono::steady_clock::now();
  const auto result = retried(findings_, "uploads", [&](std::int64_t retries) {
    record.retryCount = retries;
    if (retries > 0) record.status = UploadStatus::retrying;
    file(record);
    return send(turn % 3, record, content, uploader);
  });
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begun;
  record.status = result ? UploadStatus::completed : UploadStatus::failed;
  if (result) {
    bytesCounted_ += size;
    BandwidthStatsStore::shared().addCompletedBytes(size);
    BandwidthStatsStore::shared().addSample(static_cast<double>(size) / time.count());
  } else {
    record.errorMessage = result.error().description();
  }
  file(record);
}

Result<void> Uploads::send(int way, const UploadRecord& record, const std::string& content,
                           S3MultipartUploader& uploader) {
  const bool isLarge = content.size() >= kChunk;
  if (way == 0 && !isLarge) {
    const auto bytes = bytesOf(content);
    const auto eTag = testing::run(S3Uploader::uploadData(
        {bytes.begin(), bytes.end()}, record.filename(), kContentType, config_));
    if (!eTag) return std::unexpected(eTag.error());
    findings_.expect(*eTag == record.eTag, record.id() + " was put with the ETag " + *eTag);
    return {};
  }
  std::promise<Result<void>> done;
  const auto completion = [&done](Result<void> result) { done.set_value(std::move(result)); };
  if (way == 1 && !isLarge) {
    S3Uploader::upload(file_, record.filename(), kContentType, config_, {}, completion);
  } else {
    const auto progress = [&](std::int64_t sent, std::int64_t) {
      if (isLarge) partsSent(record, sent);
    };
    uploader.upload(file_, record.filename(), kContentType, progress, completion);
  }
  return done.get_future().get();
}

void Uploads::partsSent(const UploadRecord& record, std::int64_t bytes) {
  MultipartState state(record.id(), "unknown", record.filename(), kContentType, 2,
                       record.totalBytes, {{"1", ""}});
  if (bytes == record.totalBytes) state.completedParts["2"] = "";
  partsSent_[record.id()] = std::ssize(state.completedParts);
  MultipartUploadStore::shared().save(std::move(state));
}

Lines Uploads::expectedLines() const {
  Lines lines = {bytesLine(bytesCounted_)};
  for (const auto& [id, record] : records_) lines.insert(record.encodeJson().value());
  for (const auto& [id, parts] : partsSent_) lines.insert(stateLine(id, parts));
  return lines;
}

Lines Uploads::storedLines() {
  Lines lines = {bytesLine(BandwidthStatsStore::shared().totalBytesTransferred())};
  for (const auto& record : UploadStore::shared().allRecords()) {
    lines.insert(record.encodeJson().value());
  }
  for (const auto& state : MultipartUploadStore::shared().allStates()) {
    lines.insert(stateLine(state.assetId(), std::ssize(state.completedParts)));
  }
  return lines;
}

void Uploads::expectObjects(const testing::ObjectStore& store) const {
  std::map<std::string, testing::StoredObject> objects;
  for (auto& object : store.list(config_.prefix + "media/")) objects[object.key] = object;
  for (const auto& [id, record] : records_) {
    if (record.status != UploadStatus::completed) continue;
    const auto& object = objects[config_.prefix + record.filename()];
    findings_.expect(static_cast<std::int64_t>(object.size) == record.totalBytes &&
                         object.etag == "\"" + *record.eTag + "\"",
                     "the object of " + id + " is not what was uploaded");
    findings_.count("objects checked in the bucket");
  }
  findings_.count("uploads in parts that nobody could abort",
                  store.unfinishedUploads(config_.prefix).size());
}

void listObjects(Findings& findings, const S3Config& config, const std::stop_token& stop) {
  for (; !stop.stop_requested(); pause(stop)) {
    auto records = UploadStore::shared().allRecords();
    std::erase_if(records, [](const UploadRecord& record) {
      return record.status != UploadStatus::completed;
    });
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
