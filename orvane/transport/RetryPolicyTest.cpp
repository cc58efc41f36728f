#include <gtest/gtest.h>
#include <orvane/platform/PosixError.h>
#include <orvane/platform/UrlError.h>
#include <orvane/transport/RetryPolicy.h>
#include <orvane/transport/S3Error.h>

#include <cerrno>
#include <limits>
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
  for (const auto status : {429L, 500L, 502L, 503L, 599L, std::numeric_limits<long>::max()}) {
    EXPECT_TRUE(RetryPolicy::isRetryable(S3Error::httpError(status))) << status;
  }
  for (const auto status : {-500, 0, 200, 300, 400, 403, 404, 408, 428, 430, 499}) {
    EXPECT_FALSE(RetryPolicy::isRetryable(S3Error::httpError(status))) << status;
  }
  for (const auto& final :
       {S3Error::serverError("HTTP error 500"), S3Error::invalidURL(), S3Error::fileReadError(),
        S3Error::sessionNotConfigured(), S3Error::exportFailed()}) {
    EXPECT_FALSE(RetryPolicy::isRetryable(final)) << final.errorDescription();
  }
}

TEST(RetryPolicy, JudgesTheClientsErrorsByTheirCode) {
  const std::set<int> retryable = {-1001, -1005, -1009, -1004, -1003, -1006, -1200};
  for (int code = -1300; code <= 600; ++code) {
    const Error error(Error::kUrlLoading, code, "");
    EXPECT_EQ(RetryPolicy::isRetryable(error), retryable.contains(code)) << code;
  }
  EXPECT_TRUE(RetryPolicy::isRetryable(platform::urlError(platform::UrlErrorCode::timedOut)));
}

TEST(RetryPolicy, JudgesAllOthersByTheirDomain) {
  EXPECT_TRUE(RetryPolicy::isRetryable(platform::posixError(ECONNRESET, "read")));
  EXPECT_TRUE(RetryPolicy::isRetryable(platform::posixError(0, "read")));
  for (const auto* domain : {"Cocoa", "TalvexAPIService", "posix", ""}) {
    for (const int code : {-1001, 500, ECONNRESET}) {
      EXPECT_FALSE(RetryPolicy::isRetryable(Error(domain, code, ""))) << domain << code;
    }
  }
}

}  // namespace
}  // namespace orvane
