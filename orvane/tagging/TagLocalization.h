#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// An English label as the classifier names it, and its Italian name; both in lower case, UTF-8.
struct Translation {
  std::string_view label;
  std::string_view italianName;
};

/// The read-only map from label to Italian name, iterated in the order of the labels' bytes.
/// It owns nothing: the entries are part of the program and always there.
class Translations {
 public:
  using const_iterator = const Translation*;

  constexpr Translations(const_iterator begin, const_iterator end) noexcept
      : begin_(begin), end_(end) {}

  [[nodiscard]] constexpr const_iterator begin() const noexcept { return begin_; }
  [[nodiscard]] constexpr const_iterator end() const noexcept { return end_; }
  [[nodiscard]] constexpr std::size_t size() const noexcept {
    return static_cast<std::size_t>(end_ - begin_);
  }

  /// The entry of exactly this label, letter case included; `end()` when there is none.
  [[nodiscard]] const_iterator find(std::string_view label) const noexcept;

 private:
  const_iterator begin_;
  const_iterator end_;
};

/// Translates the classifier's English labels by a table that is built into the program. Nothing
/// is loaded, built or changed at run time, so any thread may call, at any time.
///
///     if (const auto name = TagLocalization::italianName("Snow mountain")) use(*name);
struct TagLocalization {
  TagLocalization() = delete;

  /// The Italian name of `label`, whatever its letter case: the table's entry for the whole label,
  /// otherwise the entries of its words joined with one space, in their order. Words are separated
  /// by any number of spaces; other characters, underscores among them, belong to the word.
  /// Nothing when a word has no entry, when a label without entry has fewer than two words, and
  /// for text that is not UTF-8.
  [[nodiscard]] static std::optional<std::string> italianName(std::string_view label);

  /// The table: 981 labels, 938 different names.
  [[nodiscard]] static Translations translations() noexcept;
};

}  // namespace orvane
