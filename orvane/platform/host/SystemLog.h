#pragma once

#include <functional>
#include <string_view>

namespace orvane {

/// Where the engine writes the few lines that it logs: the system's log (syslog), under the host's
/// identifier, facility "user", severity "notice"; unless the host takes them itself.
///
/// Any thread may call these. Lines never hold a secret.
class SystemLog {
 public:
  SystemLog() = delete;

  /// Gets each line without a line break at its end, on the thread that writes it: several at once
  /// when several write. What it throws is dropped. It may write lines itself.
  using Sink = std::function<void(std::string_view line)>;

  /// Writes one line of UTF-8. Control characters in it, line breaks of every kind and NUL
  /// among them, become spaces, and bytes that are no UTF-8 become U+FFFD: whatever a file name or
  /// a server's answer holds, it stays one line. May block briefly.
  static void write(std::string_view line);

  /// From now on lines go to `sink` instead of the system's log; an empty one brings that back. A
  /// line that another thread is writing may still go where it went before, even after this has
  /// returned. The sink is kept until it is replaced, at most until the process ends.
  static void setSink(Sink sink);
};

}  // namespace orvane
