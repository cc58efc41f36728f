#pragma once

#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/transport/S3Config.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <stop_token>
#include <string>

#include "Findings.h"
#include "support/ObjectStore.h"

namespace orvane::soak {

/// How many assets there are; they change again and again, so that what is kept does not grow.
inline constexpr int kAssets = 24;
[[nodiscard]] std::string assetId(int number);
/// The object's key behind the prefix.
[[nodiscard]] std::string objectName(int number);

/// The thread that uploads, in each of the ways there are, and keeps the books on it.
class Uploads {
 public:
  Uploads(Findings& findings, S3Config config);

  void run(const std::stop_token& stop);

  /// What the stores' files must hold, and what this process finds in them.
  [[nodiscard]] Lines expectedLines() const;
  [[nodiscard]] static Lines storedLines();
  /// Each object that a completed record names must be in the bucket with its size and content.
  void expectObjects(const testing::ObjectStore& store) const;

 private:
  void upload(int turn, S3MultipartUploader& uploader);
  void file(const UploadRecord& record);
  Result<void> send(int way, const UploadRecord& record, const std::string& content,
                    S3MultipartUploader& uploader);
  void partsSent(const UploadRecord& record, std::int64_t bytes);

  Findings& findings_;
  const S3Config config_;
  const std::filesystem::path file_;
  std::map<std::string, UploadRecord> records_;
  std::map<std::string, std::int64_t> partsSent_;  ///< Of the assets that go up in parts.
  std::int64_t bytesCounted_ = 0;
};

/// The work of the thread that lists: whatever a record calls completed must be in the bucket.
void listObjects(Findings& findings, const S3Config& config, const std::stop_token& stop);

}  // namespace orvane::soak
