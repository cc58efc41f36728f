#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace backup {

/// "512 B", "12.3 KiB", "300.0 MiB"...
[[nodiscard]] std::string byteText(std::int64_t bytes);

/// A file's name with "?" for what would confuse a terminal.
[[nodiscard]] std::string printable(std::string_view name);

/// What the user sees of a run: bars that are drawn anew in place when standard output is a
/// terminal, plain lines otherwise.
class Display {
 public:
  struct Bar {
    std::int64_t bytes;
    double fraction;
    std::string text;
  };

  Display();

  [[nodiscard]] bool showsBars() const { return terminal_; }
  /// Whether the bars were drawn long enough ago.
  [[nodiscard]] bool isDue() const;
  void draw(const std::vector<Bar>& bars);
  void clearBars();
  /// Prints a line that stays, in place of the bars: a word, a file's name, and more about it.
  void print(std::string_view word, std::string_view name, std::string_view detail);

 private:
  using Clock = std::chrono::steady_clock;

  const bool terminal_;
  Clock::time_point drawn_ = {};
  std::size_t barsShown_ = 0;
};

}  // namespace backup
