#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace backup {

/// "512 B", "12.3 KiB", "300.0 MiB"...
[[nodiscard]] std::string byteText(std::int64_t bytes);

/// A number with one digit after the point.
[[nodiscard]] std::string decimal(double number);

/// "1 file", "2 files"...
[[nodiscard]] std::string countText(std::integral auto count, std::string_view thing) {
  return std::to_string(count) + ' ' + std::string(thing) + (count == 1 ? "" : "s");
}

/// A text from outside (a file's name, a tag, what a store says) with "?" for what would confuse a
/// terminal or its reader.
[[nodiscard]] std::string printable(std::string_view text);

/// "a, b, c", or "nothing known"; the words printable.
[[nodiscard]] std::string listText(const std::vector<std::string>& words);

/// "word      name detail": a line about a file, name and detail printable.
[[nodiscard]] std::string lineText(std::string_view word, std::string_view name,
                                   std::string_view detail = {});

/// The text with spaces after it, so that it fills so many columns.
[[nodiscard]] std::string padded(std::string text, std::size_t columns);

/// So many cells, the given fraction of them full.
[[nodiscard]] std::string barText(double fraction, std::size_t cells);

/// What the user sees while something goes on: lines, and under them a bar that is redrawn in
/// place; without the bar when standard output is no terminal.
class Display {
 public:
  Display();

  [[nodiscard]] bool showsBar() const { return terminal_; }
  /// Draws the bar; what does not fit into the line is cut off.
  void drawBar(double fraction, std::string_view text);
  void clearBar();
  /// Prints a line that stays: a word, a file's name, and more about it.
  /// What goes wrong is for standard error.
  void print(std::string_view word, std::string_view name, std::string_view detail,
             std::ostream& stream = std::cout);

 private:
  const bool terminal_;
  bool barShown_ = false;
};

}  // namespace backup
