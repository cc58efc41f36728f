#include <orvane/transport/RetryPolicy.h>

#include <orvane/transport/S3Error.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <set>

namespace orvane {
namespace {

TEST(RetryPolicy, HasTheStatedLimits) {
  EXPECT_EQ(RetryPolicy::maxSessionRetries, 3);
  EXPECT_EQ(RetryPolicy::maxLifetimeRetries, 15);
  EXPECT_EQ(RetryPolicy::baseDelay, 2.0);
  EXPECT_EQ(RetryPolicy::maxDelay, 30.0);
}

TEST(RetryPolicy, JudgesAnswersByTheirStatus) {
  for (const auto status : {429L, 500L, 503L, 599L, INT64_MAX}) {
    EXPECT_TRUE(RetryPolicy::isRetryable(S3Error::httpError(status))) << status;
  }
  for (const auto status : {-500, 0, 300, 403, 408, 428, 430, 499}) {
    EXPECT_FALSE(RetryPolicy::isRetryable(S3Error::httpError(status))) << status;
  }
  for (const auto& final :
       {S3Error::serverError("HTTP error 500"), S3Error::invalidURL(), S3Error::fileReadError(),
        S3Error::sessionNotConfigured(), S3Error::exportFailed()}) {
    EXPECT_FALSE(RetryPolicy::isRetryable(final)) << final.errorDescription();
  }
}

TEST(RetryPolicy, JudgesOtherErrorsByDomainAndCode) {
  const std::set<int> retryable = {-1001, -1005, -1009, -1004, -1003, -1006, -1200};
  for (int code = -1300; code <= 600; ++code) {
    EXPECT_EQ(RetryPolicy::isRetryable(Error(Error::kUrlLoading, code, "")),
              retryable.contains(code))
        << code;
    EXPECT_TRUE(RetryPolicy::isRetryable(Error(Error::kPosix, code, "")));
    for (const auto* domain : {"Cocoa", "TalvexAPIService", "posix", ""}) {
      EXPECT_FALSE(RetryPolicy::isRetryable(Error(domain, code, ""))) << domain << code;
    }
  }
}

}  // namespace
}  // namespace orvane
