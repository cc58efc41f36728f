#pragma once

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <string>

namespace orvane::testing {

/// Runs the shell's command until this object or this process goes, however that ends.
inline ChildProcess startDaemon(const std::string& command) {
  return ChildProcess::start({"sh", "-c", "cd $ORVANE_TEST_DIRECTORY; exec 2>log; " + command});
}

/// A message bus of this test alone; no service comes up on it by itself but those that the test
/// has described in its folder "services". This process and its children take it for the user's.
struct SessionBus {
  SessionBus() { setenv("DBUS_SESSION_BUS_ADDRESS", daemon.readLine().value().c_str(), 1); }

  ChildProcess daemon = startDaemon(R"(
    echo "<busconfig><type>session</type><listen>unix:path=$PWD/bus</listen>
      <servicedir>$PWD/services</servicedir>
      <policy context='default'><allow send_destination='*'/><allow own='*'/>
      <allow eavesdrop='true'/></policy></busconfig>" >bus.conf
    exec setpriv --pdeathsig KILL dbus-daemon --config-file=bus.conf --nofork \
      --nopidfile --print-address=1)");
};

/// A real keyring daemon on the bus; with `--unlock` it has a default collection, which is open.
struct SecretService {
  explicit SecretService(const std::string& unlock = "--unlock")
      : daemon(startDaemon("XDG_RUNTIME_DIR=$PWD exec setpriv --pdeathsig KILL "
                           "gnome-keyring-daemon --foreground --components=secrets " +
                           unlock + " <<E\npassword\nE")) {
    ChildProcess::start({"gdbus", "wait", "--session", "--timeout=60", "org.freedesktop.secrets"})
        .wait();
  }

  ChildProcess daemon;
};

}  // namespace orvane::testing
