#include "Display.h"

#include <orvane/platform/base/Utf8.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace backup {
namespace {

bool beginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

/// Control characters, and what breaks a line or turns its direction.
bool isConfusing(std::string_view character) {
  // What lies between two characters; UTF-8's bytes are ordered as they are.
  using Gap = std::pair<std::string_view, std::string_view>;
  constexpr std::array<Gap, 6> kConfusing = {{{"", " "},
                                              {"~", "\u00A0"},
                                              {"\u061B", "\u061D"},
                                              {"\u200D", "\u2010"},
                                              {"\u2027", "\u202F"},
                                              {"\u2065", "\u206A"}}};
  return std::ranges::any_of(kConfusing, [character](const Gap& gap) {
    return gap.first < character && character < gap.second;
  });
}

}  // namespace

std::string byteText(std::int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  constexpr std::array kUnits = {"KiB", "MiB", "GiB", "TiB"};
  double amount = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // What would be rounded to "1024.0" is the next unit's already.
  for (; amount >= 1023.95 && unit + 1 < kUnits.size(); ++unit) amount /= 1024;
  return decimal(amount) + ' ' + kUnits.at(unit);
}

std::string decimal(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", number);
  return text.data();
}

std::string printable(std::string_view text) {
  const bool utf8 = orvane::platform::isUtf8(text);
  std::string shown;
  while (!text.empty()) {
    const auto* const next = std::find_if(text.begin() + 1, text.end(), beginsCharacter);
    const auto character = text.substr(0, utf8 ? static_cast<std::size_t>(next - text.begin()) : 1);
    const bool isShown = utf8 ? !isConfusing(character) : character >= " " && character < "\x7F";
    shown += isShown ? character : "?";
    text.remove_prefix(character.size());
  }
  return shown;
}

std::string lineText(std::string_view word, std::string_view name, std::string_view detail) {
  return padded(std::string(word), 10) + printable(name) + printable(detail) + '\n';
}

std::string listText(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : ", ") + printable(word);
  return text.empty() ? "nothing known" : text;
}

std::string padded(std::string text, std::size_t columns) {
  const auto used = static_cast<std::size_t>(std::ranges::count_if(text, beginsCharacter));
  return text.append(columns - std::min(used, columns), ' ');
}

std::string barText(double fraction, std::size_t cells) {
  const double full = fraction * static_cast<double>(cells);
  std::string bar;
  for (std::size_t cell = 0; cell < cells; ++cell) {
    bar += static_cast<double>(cell) < full ? "█" : "░";
  }
  return bar;
}

Display::Display() : terminal_(isatty(STDOUT_FILENO) == 1) {}

void Display::drawBar(double fraction, std::string_view text) {
  if (!terminal_) return;
  const double part = std::clamp(fraction, 0.0, 1.0);
  // The line may be longer than the terminal is wide; it must not run on into the next one.
  std::cout << "\r\033[K\033[?7l" << barText(part, 20) << ' ' << std::lround(100 * part) << "%  "
            << text << "\033[?7h" << std::flush;
  barShown_ = true;
}

void Display::clearBar() {
  if (std::exchange(barShown_, false)) std::cout << "\r\033[K" << std::flush;
}

void Display::print(std::string_view word, std::string_view name, std::string_view detail,
                    std::ostream& stream) {
  clearBar();
  stream << lineText(word, name, detail) << std::flush;
}

}  // namespace backup
