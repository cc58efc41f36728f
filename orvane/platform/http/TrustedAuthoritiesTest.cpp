#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/platform/http/internal/CurlError.h>

#include "support/TemporaryDirectory.h"
#include "support/TlsServer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

namespace orvane::platform {
namespace {

using testing::TlsServer;

std::string file(const std::string& name) { return (testing::testDirectory() / name).string(); }

/// The error that a request to `url` ends with; empty when an answer comes.
std::string errorFrom(const std::string& url) {
  const auto answer = HttpSession::shared().sendAndWait(
      {.method = "GET", .url = Url::parse(url).value(), .headers = {}});
  if (answer) return "";
  EXPECT_EQ(answer.error().code(), -1202);
  return answer.error().description();
}

/// With the options that hosts give, on real connections.
TEST(TrustedAuthorities, VouchForServersAndFaultsAreNamed) {
  testing::makeAuthority("authority");
  testing::makeAuthority("stranger");
  testing::makeServer("good", "authority", "IP:127.0.0.1");
  testing::makeServer("strange", "stranger", "IP:127.0.0.1");
  testing::makeServer("misnamed", "authority", "DNS:other.example");
  testing::makeServer("expired", "authority", "IP:127.0.0.1", "0");
  EXPECT_EQ(errorFrom(TlsServer("good").url),
            "The server's certificate is not trusted (nobody trusted has issued it)");

  testing::writeFile(file("broken.pem"),
                     "-----BEGIN CERTIFICATE-----\nMII\n-----END CERTIFICATE-----\n");
  for (const auto* none : {"missing.pem", "authority.key", "broken.pem"}) {
    const auto refused = HostApplication::configure({.certificateAuthorities = file(none)});
    EXPECT_EQ(refused.error().code(), 4) << none;
  }
  ASSERT_TRUE(HostApplication::configure({.certificateAuthorities = file("authority.pem")}));
  const std::pair<std::string, std::string> cases[] = {
      {"good", ""},
      {"strange", "The server's certificate is not trusted (nobody trusted has issued it)"},
      {"expired", "The server's certificate is not trusted (it has expired)"},
      {"misnamed", "The server's certificate is not trusted (it is made out to another name)"}};
  for (const auto& [name, error] : cases) EXPECT_EQ(errorFrom(TlsServer(name).url), error);
  const TlsServer proxy("expired");
  setenv("https_proxy", proxy.url.c_str(), 1);
  EXPECT_EQ(errorFrom("https://elsewhere.example/"),
            "The server's certificate is not trusted (of the proxy: it has expired)");
}

TEST(TrustedAuthorities, AMachineWithoutAnyGivesAFinalError) {
  testing::makeAuthority("server");
  const TlsServer server("server");
  CURL* const easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, server.url.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, file("missing.pem").c_str());
  const auto error = errorOf(easy, curl_easy_perform(easy));
  curl_easy_cleanup(easy);
  EXPECT_EQ(error.code(), -1202);
  EXPECT_EQ(error.description(),
            "The server's certificate is not trusted (the system has no bundle of authorities)");
}

}  // namespace
}  // namespace orvane::platform
