#include <orvane/transport/AWSSignatureV4.h>

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {
namespace {

std::string fromHex(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

std::vector<std::string> fieldsOf(std::string_view line) {
  std::vector<std::string> fields;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = line.find('\t');
    fields.push_back(fromHex(line.substr(0, end)));
    if (end != std::string_view::npos) line.remove_prefix(end + 1);
  }
  return fields;
}

std::string authorizationFor(const std::vector<std::string>& fields) {
  const auto url = Url::parse(fields.at(5));
  if (!url) return "(no URL)";
  AWSSignatureV4::Headers headers;
  for (std::size_t i = 9; i + 1 < fields.size(); i += 2) headers[fields[i]] = fields[i + 1];
  const AWSSignatureV4 signer(fields.at(0), fields.at(1), fields.at(2));
  const std::chrono::sys_seconds date(std::chrono::seconds(std::stoll(fields.at(3))));
  const auto request = signer.signedRequest(fields.at(4), *url, headers, bytesOf(fields.at(7)),
                                            fields.at(6) == "unsigned", date);
  return std::string(request.headers.get("Authorization").value_or("(absent)"));
}

TEST(SignatureDifferential, AgreesWithBotocore) {
  constexpr std::size_t kRequests = 3000;
  for (const std::string seed : {"1", "20130524"}) {
    auto botocore = testing::ChildProcess::start(
        {"/usr/bin/python3", ORVANE_BOTOCORE_SIGNATURES, std::to_string(kRequests), seed});
    std::size_t compared = 0;
    while (const auto line = botocore.readLine()) {
      const auto fields = fieldsOf(*line);
      ASSERT_EQ(authorizationFor(fields), fields.at(8)) << fields.at(4) << " " << fields.at(5);
      ++compared;
    }
    EXPECT_EQ(botocore.wait(), 0);
    EXPECT_EQ(compared, kRequests);
  }
}

}  // namespace
}  // namespace orvane
