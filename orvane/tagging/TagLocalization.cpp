#include <orvane/tagging/TagLocalization.h>

#include <orvane/platform/base/Ascii.h>
#include <orvane/tagging/internal/ItalianLabels.h>

#include <algorithm>
#include <functional>
#include <string>

namespace orvane {
namespace {

using tagging::kItalianLabels;

static_assert(kItalianLabels.size() == 981);
static_assert(std::ranges::adjacent_find(kItalianLabels, std::greater_equal(),
                                         &Translation::label) == kItalianLabels.end(),
              "labels are sorted and distinct");

// The one character beyond ASCII whose lower-case form is ASCII: KELVIN SIGN, U+212A, becomes "k".
// Labels are ASCII, so with it and A to Z lower-casing by all of Unicode finds the same entries.
constexpr std::string_view kKelvinSign = "\u212A";

constexpr std::size_t kLongestLabel = std::ranges::max(kItalianLabels, {}, [](const auto& entry) {
                                        return entry.label.size();
                                      }).label.size();

/// The entry whose label is `text` in lower case, or null.
const Translation* entryOf(std::string_view text) {
  if (text.size() > kLongestLabel * kKelvinSign.size()) return nullptr;
  std::string label = platform::lowered(text);
  for (std::size_t at = 0; (at = label.find(kKelvinSign, at)) != std::string::npos;) {
    label.replace(at, kKelvinSign.size(), "k");
  }
  const auto table = TagLocalization::translations();
  const auto* const entry = table.find(label);
  return entry == table.end() ? nullptr : entry;
}

std::optional<std::string> nameFromWords(std::string_view label) {
  std::string names;
  std::size_t count = 0;
  while (!label.empty()) {
    const auto word = label.substr(0, label.find(' '));
    label.remove_prefix(std::min(word.size() + 1, label.size()));
    if (word.empty()) continue;
    const auto* const entry = entryOf(word);
    if (entry == nullptr) return std::nullopt;
    if (count++ > 0) names += ' ';
    names += entry->italianName;
  }
  if (count < 2) return std::nullopt;
  return names;
}

}  // namespace

std::optional<std::string> TagLocalization::italianName(std::string_view label) {
  if (const auto* const entry = entryOf(label)) return std::string(entry->italianName);
  return nameFromWords(label);
}

Translations TagLocalization::translations() noexcept {
  return {kItalianLabels.data(), kItalianLabels.data() + kItalianLabels.size()};
}

Translations::const_iterator Translations::find(std::string_view label) const noexcept {
  const auto* const entry = std::ranges::lower_bound(*this, label, {}, &Translation::label);
  return entry != end_ && entry->label == label ? entry : end_;
}

}  // namespace orvane
