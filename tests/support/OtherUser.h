#pragma once

#include "support/TemporaryDirectory.h"

#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace orvane::testing {

/// Lets every child process that is started meanwhile run as an unprivileged user, to whom the
/// test's folder belongs; the test itself stays what it is. Needs the rights of root.
class OtherUser {
 public:
  static constexpr uid_t kId = 65534;

  OtherUser() {
    if (chown(testDirectory().c_str(), kId, kId) != 0) throw std::runtime_error("chown");
    setenv(kAsked, "1", 1);
  }
  ~OtherUser() { unsetenv(kAsked); }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;

  [[nodiscard]] static bool isPossible() { return geteuid() == 0; }

  /// Called by children before anything else.
  static void becomeIfAsked() {
    if (std::getenv(kAsked) == nullptr) return;
    if (setgroups(0, nullptr) != 0 || setgid(kId) != 0 || setuid(kId) != 0) {
      throw std::runtime_error("setuid");
    }
    prctl(PR_SET_DUMPABLE, 1);  // For the leak check.
  }

 private:
  static constexpr const char* kAsked = "ORVANE_TEST_OTHER_USER";
};

}  // namespace orvane::testing
