#include <orvane/transport/AWSSignatureV4.h>

#include "support/Test.h"

namespace orvane {
namespace {

using namespace std::chrono;

std::string field(const HttpRequest& request, std::string_view name) {
  return std::string(request.headers.get(name).value_or("(absent)"));
}

std::string fromHex(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

std::string authorizationFor(const std::vector<std::string>& fields) {
  AWSSignatureV4::Headers headers;
  for (std::size_t i = 9; i + 1 < fields.size(); i += 2) headers[fields[i]] = fields[i + 1];
  const AWSSignatureV4 signer(fields.at(0), fields.at(1), fields.at(2));
  const sys_seconds date(seconds(std::stoll(fields.at(3))));
  const auto request =
      signer.signedRequest(fields.at(4), Url::parse(fields.at(5)).value(), headers,
                           bytesOf(fields.at(7)), fields.at(6) == "unsigned", date);
  return field(request, "Authorization");
}

TEST(AWSSignatureV4, AgreesWithThePublishedExamplesAndAnIndependentSigner) {
  std::ifstream signedRequests(testData("signatures/signed.txt"));
  int compared = 0;
  for (std::string line; std::getline(signedRequests, line); ++compared) {
    std::vector<std::string> fields;
    for (const auto part : std::views::split(line, '\t')) {
      fields.push_back(fromHex(std::string_view(part)));
    }
    EXPECT_EQ(authorizationFor(fields), fields.at(8)) << fields.at(4) << " " << fields.at(5);
  }
  EXPECT_EQ(compared, 211);
}

TEST(AWSSignatureV4, AddsItsFieldsAndALimitOf60Seconds) {
  const AWSSignatureV4 signer("access", "secret", "us-east-1");
  const auto url = Url::parse("http://store.example:9000/b/k?uploads").value();
  const auto date = sys_days(2024y / January / 5) + 3h + 4min + 5s + 999ms;
  const auto request = [&](std::string_view body, bool unsignedPayload) {
    return signer.signedRequest("POST", url, {{"Content-Type", "image/jpeg"}, {"Host", "liar"}},
                                bytesOf(body), unsignedPayload, date);
  };
  const auto empty = request("", false);
  EXPECT_EQ(empty.method, "POST");
  EXPECT_EQ(empty.url, url);
  EXPECT_EQ(empty.timeout, 60s);
  EXPECT_EQ(field(empty, "Host"), "store.example");
  EXPECT_EQ(field(empty, "x-amz-date"), "20240105T030405Z");
  EXPECT_EQ(field(empty, "x-amz-content-sha256"),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(field(empty, "Content-Type"), "image/jpeg");
  EXPECT_EQ(field(request("one", true), "x-amz-content-sha256"), "UNSIGNED-PAYLOAD");
  EXPECT_EQ(field(request("one", true), "Authorization"),
            field(request("another", true), "Authorization"));
}

}  // namespace
}  // namespace orvane
