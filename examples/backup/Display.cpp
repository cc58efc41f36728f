#include "Display.h"

#include <orvane/platform/Utf8.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iomanip>
#include <iostream>

namespace backup {
namespace {

constexpr std::chrono::milliseconds kBetweenFrames(100);
constexpr std::size_t kColumnsBeforeText = 43;

bool beginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

std::size_t terminalColumns() {
  winsize size{};
  const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return std::max<std::size_t>(known ? size.ws_col : 80, kColumnsBeforeText + 2);
}

/// The end of a text that is too long for so many columns.
std::string fitted(const std::string& text, std::size_t columns) {
  std::size_t at = text.size();
  for (std::size_t room = columns - 1; at > 0 && room > 0;) {
    if (beginsCharacter(text[--at])) --room;
  }
  return at == 0 ? text : "…" + text.substr(at);
}

std::string barLine(const Display::Bar& bar, std::size_t columns) {
  constexpr int kCells = 20;
  const double fraction = std::clamp(bar.fraction, 0.0, 1.0);
  // A text may be wider than its characters are many; it must not run on into the next line.
  std::string line = "\033[?7l  ";
  for (int cell = 0; cell < kCells; ++cell) line += cell < fraction * kCells ? "█" : "░";
  std::array<char, 48> numbers{};
  std::snprintf(numbers.data(), numbers.size(), "  %3.0f%%  %10s  ", 100 * fraction,
                byteText(bar.bytes).c_str());
  return line + numbers.data() + fitted(bar.text, columns - kColumnsBeforeText) + "\033[?7h\n";
}

}  // namespace

std::string byteText(std::int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  constexpr std::array kUnits = {"KiB", "MiB", "GiB", "TiB"};
  double amount = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // What would be rounded to "1024.0" is the next unit's already.
  for (; amount >= 1023.95 && unit + 1 < kUnits.size(); ++unit) amount /= 1024;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", amount, kUnits.at(unit));
  return text.data();
}

std::string printable(std::string_view name) {
  const bool utf8 = orvane::platform::isUtf8(name);
  std::string text(name);
  std::ranges::replace_if(
      text, [utf8](unsigned char c) { return c < 0x20 || c == 0x7F || (c > 0x7F && !utf8); }, '?');
  return text;
}

Display::Display() : terminal_(isatty(STDOUT_FILENO) == 1) {}

bool Display::isDue() const { return terminal_ && Clock::now() - drawn_ >= kBetweenFrames; }

void Display::draw(const std::vector<Bar>& bars) {
  clearBars();
  const std::size_t columns = terminalColumns();
  for (const Bar& bar : bars) std::cout << barLine(bar, columns);
  std::cout << std::flush;
  barsShown_ = bars.size();
  drawn_ = Clock::now();
}

void Display::clearBars() {
  if (barsShown_ > 0) std::cout << "\033[" << barsShown_ << "F\033[J";
  barsShown_ = 0;
}

void Display::print(std::string_view word, std::string_view name, std::string_view detail) {
  clearBars();
  std::cout << std::left << std::setw(10) << word << printable(name) << detail << '\n'
            << std::flush;
}

}  // namespace backup
