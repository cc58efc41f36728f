#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/http/HttpSession.h>

#include "support/Test.h"
#include "support/TlsServer.h"

namespace orvane::platform {
namespace {

using testing::TlsServer;

const std::string kUntrusted = "The server's certificate is not trusted ";

std::string file(const std::string& name) { return (testDirectory() / name).string(); }

/// The error that a request to `url` ends with; empty when a response comes.
std::string errorFrom(const std::string& url) {
  const auto response = HttpSession::shared().sendAndWait(
      {.method = "GET", .url = Url::parse(url).value(), .headers = {}});
  if (response) return "";
  EXPECT_EQ(response.error().code(), -1202);
  return std::string(response.error().description());
}

/// With the options that hosts give, on real connections.
TEST(TrustedAuthorities, VouchForServersAndFaultsAreNamed) {
  testing::makeAuthority("authority");
  testing::makeAuthority("stranger");
  testing::makeServer("good", "authority", "IP:127.0.0.1");
  testing::makeServer("strange", "stranger", "IP:127.0.0.1");
  testing::makeServer("misnamed", "authority", "DNS:other.example");
  testing::makeServer("expired", "authority", "IP:127.0.0.1", "0");
  EXPECT_EQ(errorFrom(TlsServer("good").url), kUntrusted + "(nobody trusted has issued it)");

  writeFile(file("broken.pem"), "-----BEGIN CERTIFICATE-----\nMII\n-----END CERTIFICATE-----\n");
  for (const auto* none : {"missing.pem", "authority.key", "broken.pem"}) {
    const auto refused = HostApplication::configure({.certificateAuthorities = file(none)});
    EXPECT_EQ(refused.error().code(), 4) << none;
  }
  ASSERT_TRUE(HostApplication::configure({.certificateAuthorities = file("authority.pem")}));
  EXPECT_EQ(errorFrom(TlsServer("good").url), "");
  EXPECT_EQ(errorFrom(TlsServer("strange").url), kUntrusted + "(nobody trusted has issued it)");
  EXPECT_EQ(errorFrom(TlsServer("misnamed").url), kUntrusted + "(it is made out to another name)");
  const TlsServer expired("expired");
  EXPECT_EQ(errorFrom(expired.url), kUntrusted + "(it has expired)");
  setenv("https_proxy", expired.url.c_str(), 1);
  EXPECT_EQ(errorFrom("https://elsewhere.example/"), kUntrusted + "(of the proxy: it has expired)");
}

}  // namespace
}  // namespace orvane::platform
