#include "support/OtherUser.h"

#include "support/TemporaryDirectory.h"

#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace orvane::testing {
namespace {

constexpr const char* kAsked = "ORVANE_TEST_OTHER_USER";

}  // namespace

OtherUser::OtherUser() {
  if (chown(testDirectory().c_str(), kId, kId) != 0) throw std::runtime_error("chown");
  setenv(kAsked, "1", 1);
}

OtherUser::~OtherUser() { unsetenv(kAsked); }

bool OtherUser::isPossible() { return geteuid() == 0; }

void OtherUser::becomeIfAsked() {
  if (std::getenv(kAsked) == nullptr) return;
  if (setgroups(0, nullptr) != 0 || setgid(kId) != 0 || setuid(kId) != 0) {
    throw std::runtime_error("setuid");
  }
  prctl(PR_SET_DUMPABLE, 1);  // For the leak check.
}

}  // namespace orvane::testing
