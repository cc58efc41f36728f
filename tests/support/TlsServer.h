#pragma once

#include "support/ChildProcess.h"

#include <string>

namespace orvane::testing {

/// Makes NAME.pem and NAME.key in the test's folder: an authority that only itself vouches for.
void makeAuthority(const std::string& name);

/// The same for a server of that host ("IP:127.0.0.1", "DNS:a.example"), issued by an authority. It
/// expires after so many days; 0 is at once.
void makeServer(const std::string& name, const std::string& authority, const std::string& host,
                const std::string& days = "1");

/// A real TLS server on 127.0.0.1 that shows the certificate NAME.pem and answers every GET by a
/// page of its own.
struct TlsServer {
  explicit TlsServer(const std::string& name);

  ChildProcess process;
  std::string url;
};

}  // namespace orvane::testing
