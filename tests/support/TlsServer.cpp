#include "support/TlsServer.h"

#include "support/TemporaryDirectory.h"

#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace orvane::testing {
namespace {

std::string file(const std::string& name) { return (testDirectory() / name).string(); }

void openssl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "openssl");
  if (ChildProcess::start(arguments).wait() != 0) throw std::runtime_error(arguments.at(1));
}

/// Makes a key, and with it a certificate that vouches for itself ("-x509") or the request for one
/// ("-new").
void makeKey(const std::string& name, const std::string& kind, const std::string& output,
             const std::string& host) {
  openssl({"req", kind, "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-subj",
           "/CN=" + name, "-addext", "subjectAltName=" + host, "-keyout", file(name + ".key"),
           "-out", file(output)});
}

}  // namespace

void makeAuthority(const std::string& name) {
  makeKey(name, "-x509", name + ".pem", "DNS:" + name);
}

void makeServer(const std::string& name, const std::string& authority, const std::string& host,
                const std::string& days) {
  makeKey(name, "-new", name + ".csr", host);
  openssl({"x509", "-req", "-in", file(name + ".csr"), "-CA", file(authority + ".pem"), "-CAkey",
           file(authority + ".key"), "-copy_extensions", "copy", "-days", days, "-out",
           file(name + ".pem")});
}

TlsServer::TlsServer(const std::string& name)
    : process(ChildProcess::start({"openssl", "s_server", "-accept", "127.0.0.1:0", "-www", "-key",
                                   file(name + ".key"), "-cert", file(name + ".pem")})) {
  constexpr std::string_view kAnnouncement = "ACCEPT ";
  for (auto line = process.readLine(); line; line = process.readLine()) {
    if (!line->starts_with(kAnnouncement)) continue;
    url = "https://" + line->substr(kAnnouncement.size()) + "/";
    return;
  }
  throw std::runtime_error("no TLS server");
}

}  // namespace orvane::testing
