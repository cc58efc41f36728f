#include <orvane/transport/S3Error.h>

#include <orvane/transport/RetryPolicy.h>

#include "support/Test.h"

namespace orvane {
namespace {

TEST(S3Error, EveryCaseHasItsSentenceAndMayPassOrNot) {
  const std::tuple<S3Error, std::string, bool> cases[] = {
      {S3Error::httpError(429), "HTTP error 429", true},
      {S3Error::httpError(500, "any body"), "HTTP error 500", true},
      {S3Error::httpError(INT64_MAX), "HTTP error 9223372036854775807", true},
      {S3Error::httpError(-9'000'000'000), "HTTP error -9000000000", false},
      {S3Error::httpError(428), "HTTP error 428", false},
      {S3Error::httpError(430), "HTTP error 430", false},
      {S3Error::httpError(499), "HTTP error 499", false},
      {S3Error::parseError("HTTP error 500"), "HTTP error 500", false},
      {S3Error::invalidURL(), "Invalid S3 URL", false},
      {S3Error::noData(), "Unable to read file", false},
      {S3Error::sessionNotConfigured(), "Background session not configured", false},
      {S3Error::exportFailed(), "Photo export failed", false}};
  for (const auto& [error, sentence, mayPass] : cases) {
    const Error general = error;
    EXPECT_EQ(general.description(), sentence);
    ASSERT_NE(general.as<S3Error>(), nullptr);
    EXPECT_EQ(*general.as<S3Error>(), error);
    EXPECT_EQ(RetryPolicy::isRetryable(error), mayPass) << sentence;
  }
}

TEST(RetryPolicy, JudgesOtherErrorsByDomainAndCode) {
  const std::set<int> retryable = {-1001, -1005, -1009, -1004, -1003, -1006, -1200};
  for (int code = -1300; code <= 600; ++code) {
    EXPECT_EQ(RetryPolicy::isRetryable(Error(Error::kUrlLoading, code, "")),
              retryable.contains(code))
        << code;
  }
  EXPECT_TRUE(RetryPolicy::isRetryable(Error(Error::kPosix, EIO, "")));
  EXPECT_FALSE(RetryPolicy::isRetryable(Error("TalvexAPIService", 503, "")));
}

}  // namespace
}  // namespace orvane
