#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/S3Error.h>

#include "examples/backup/Rules.h"

#include <gtest/gtest.h>

#include <chrono>

namespace backup {
namespace {

TEST(BackupRulesTest, DelaysDoubleUntilTheRetriesAreUsedUp) {
  const auto busy = orvane::S3Error::httpError(503, "");
  const auto wrong = orvane::S3Error::httpError(400, "");
  struct Case {
    const char* name;
    const orvane::Error& error;
    std::int64_t retriesInRun;
    std::int64_t retriesInLife;
    double leastSeconds;  ///< 0: no retry.
  };
  const Case cases[] = {{"first", busy, 0, 14, 2},          {"second", busy, 1, 0, 4},
                        {"third", busy, 2, 0, 8},           {"run's used up", busy, 3, 0, 0},
                        {"life's used up", busy, 0, 15, 0}, {"no use", wrong, 0, 0, 0}};
  for (const auto& [name, error, retriesInRun, retriesInLife, leastSeconds] : cases) {
    SCOPED_TRACE(name);
    orvane::UploadRecord record("a", "a", orvane::UploadStatus::retrying, 0, 1);
    record.retryCount = retriesInLife;
    const auto delay = retryDelay(error, record, retriesInRun);
    ASSERT_EQ(delay.has_value(), leastSeconds > 0);
    if (!delay) continue;
    EXPECT_GE(delay->count(), leastSeconds);
    EXPECT_LE(delay->count(), leastSeconds * 1.5);
  }
}

TEST(BackupRulesTest, AnUploadThatTheStoreHasForgottenIsNoRefusal) {
  const orvane::Error gone = orvane::S3Error::httpError(404);
  orvane::UploadRecord record("a", "a", orvane::UploadStatus::uploading, 0, 20'000'000);
  EXPECT_TRUE(isRefused(gone, record));
  EXPECT_FALSE(retryDelay(gone, record, 0));
  record.bytesUploaded = record.totalBytes;
  EXPECT_FALSE(isRefused(gone, record));
  EXPECT_TRUE(retryDelay(gone, record, 0));
  EXPECT_TRUE(isRefused(orvane::S3Error::httpError(403), record));
}

}  // namespace
}  // namespace backup
