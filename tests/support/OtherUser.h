#pragma once

#include <sys/types.h>

namespace orvane::testing {

/// Lets every child process that is started meanwhile run as an unprivileged user, to whom the
/// test's folder belongs; the test itself stays what it is. Needs the rights of root.
class OtherUser {
 public:
  static constexpr uid_t kId = 65534;

  OtherUser();
  ~OtherUser();
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;

  [[nodiscard]] static bool isPossible();

  /// Called by children before anything else.
  static void becomeIfAsked();
};

}  // namespace orvane::testing
