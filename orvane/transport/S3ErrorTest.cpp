#include <orvane/transport/S3Error.h>

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(S3Error, EveryCaseHasItsSentence) {
  const std::pair<S3Error, std::string> cases[] = {
      {S3Error::httpError(403), "HTTP error 403"},
      {S3Error::httpError(-9'000'000'000), "HTTP error -9000000000"},
      {S3Error::serverError("Missing ETag"), "Missing ETag"},
      {S3Error::invalidURL(), "Invalid S3 URL"},
      {S3Error::fileReadError(), "Unable to read file"},
      {S3Error::sessionNotConfigured(), "Background session not configured"},
      {S3Error::exportFailed(), "Photo export failed"},
  };
  for (const auto& [error, sentence] : cases) {
    EXPECT_EQ(error.errorDescription(), sentence);
    const Error general = error;
    EXPECT_EQ(general.description(), sentence);
    ASSERT_NE(general.as<S3Error>(), nullptr);
    EXPECT_EQ(*general.as<S3Error>(), error);
  }
}

TEST(S3Error, EqualityLooksAtCaseAndPayload) {
  EXPECT_EQ(S3Error::httpError(500, "any body"), S3Error::httpError(500));
  EXPECT_NE(S3Error::httpError(500), S3Error::httpError(501));
  EXPECT_EQ(S3Error::parseError("x"), S3Error::serverError("x"));
  EXPECT_NE(S3Error::serverError("Invalid S3 URL"), S3Error::invalidURL());
  EXPECT_EQ(S3Error::noData(), S3Error::fileReadError());
  EXPECT_EQ(S3Error::httpError(429).statusCode(), 429);
  EXPECT_EQ(S3Error::noData().statusCode(), std::nullopt);
}

}  // namespace
}  // namespace orvane
