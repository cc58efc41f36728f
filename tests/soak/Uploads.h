#pragma once

#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/transport/S3Config.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>

#include "Findings.h"
#include "support/ObjectStore.h"

namespace orvane::soak {

/// How many assets there are; they change again and again, so that what is kept does not grow.
inline constexpr int kAssets = 12;
[[nodiscard]] std::string assetId(int turn);
/// The object's key behind the prefix.
[[nodiscard]] std::string objectName(int turn);

/// The thread that uploads, in each of the ways there are, and keeps the books on it.
class Uploads {
 public:
  Uploads(Findings& findings, S3Config config);

  void run(const std::stop_token& stop);
  /// What the stores' files must hold.
  [[nodiscard]] const Ledger& ledger() const { return ledger_; }

 private:
  void upload(int turn, S3MultipartUploader& uploader);
  void file(const UploadRecord& record);
  Result<void> send(const UploadRecord& record, const std::string& content,
                    S3MultipartUploader& uploader);
  void partsSent(const UploadRecord& record, std::int64_t bytes);

  Findings& findings_;
  const S3Config config_;
  const std::filesystem::path file_;
  Ledger ledger_;
  std::int64_t bytesCounted_ = 0;
};

/// What this process finds in the stores' files.
[[nodiscard]] Ledger storedUploads();

/// Each object that a completed record names must be in the bucket with its content.
void expectObjects(Findings& findings, const testing::ObjectStore& store);

/// The work of the thread that lists: whatever a record calls completed must be in the bucket.
void listObjects(Findings& findings, const S3Config& config, const std::stop_token& stop);

}  // namespace orvane::soak
