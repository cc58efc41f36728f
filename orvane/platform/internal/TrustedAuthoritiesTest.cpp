#include <gtest/gtest.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/platform/HttpSession.h>
#include <orvane/platform/internal/CurlError.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

namespace orvane::platform {
namespace {

using testing::ChildProcess;

std::string file(const std::string& name) { return (testing::testDirectory() / name).string(); }

void openssl(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"openssl"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  ASSERT_EQ(ChildProcess::start(command).wait(), 0);
}

/// Makes a key, and with it a certificate that says so of itself, or the request for one.
void makeKey(const std::string& name, const std::string& kind, const std::string& certificate,
             const std::string& host) {
  openssl({"req", kind, "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-subj",
           "/CN=" + name, "-addext", "subjectAltName=" + host, "-keyout", file(name + ".key"),
           "-out", file(certificate)});
}

void makeAuthority(const std::string& name) {
  makeKey(name, "-x509", name + ".pem", "DNS:" + name);
}

void makeServer(const std::string& name, const std::string& issuer, const std::string& host,
                const std::string& days = "1") {
  makeKey(name, "-new", name + ".csr", host);
  openssl({"x509", "-req", "-in", file(name + ".csr"), "-CA", file(issuer + ".pem"), "-CAkey",
           file(issuer + ".key"), "-copy_extensions", "copy", "-days", days, "-out",
           file(name + ".pem")});
}

/// A real TLS server on 127.0.0.1 that shows a certificate, and answers every GET.
struct TlsServer {
  explicit TlsServer(const std::string& name)
      : process(ChildProcess::start({"openssl", "s_server", "-accept", "127.0.0.1:0", "-www",
                                     "-key", file(name + ".key"), "-cert", file(name + ".pem")})) {
    constexpr std::string_view kAnnouncement = "ACCEPT ";
    for (auto line = process.readLine(); line; line = process.readLine()) {
      if (!line->starts_with(kAnnouncement)) continue;
      url = "https://" + line->substr(kAnnouncement.size()) + "/";
      return;
    }
  }
  ChildProcess process;
  std::string url;
};

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
  makeAuthority("authority");
  makeAuthority("stranger");
  makeServer("good", "authority", "IP:127.0.0.1");
  makeServer("strange", "stranger", "IP:127.0.0.1");
  makeServer("misnamed", "authority", "DNS:other.example");
  makeServer("expired", "authority", "IP:127.0.0.1", "-1");
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
  makeAuthority("server");
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
