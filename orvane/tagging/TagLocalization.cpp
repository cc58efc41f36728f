#include <orvane/tagging/TagLocalization.h>

#include <orvane/platform/base/Ascii.h>
#include <orvane/tagging/internal/ItalianLabels.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <utility>

namespace orvane {
namespace {

using tagging::kItalianLabels;

static_assert(kItalianLabels.size() == 981);
static_assert(std::ranges::adjacent_find(kItalianLabels, std::greater_equal(),
                                         &Translation::label) == kItalianLabels.end(),
              "labels are sorted and distinct");

/// The first bytes of `text` as a number, upper-case letters as their lower-case ones (and some
/// other characters as one another, which a hash may do).
template <class Word>
constexpr std::uint64_t foldedWord(std::string_view text) {
  std::array<char, sizeof(Word)> word{};
  std::copy_n(text.begin(), sizeof(Word), word.begin());
  return std::bit_cast<Word>(word) | static_cast<Word>(0x2020202020202020);
}

/// A hash of length, head and tail, the same for all letter cases. `text` has two bytes or more.
constexpr std::uint64_t hashOf(std::string_view text) {
  const auto mix = [text]<class Word>(Word) {
    const auto head = foldedWord<Word>(text);
    const auto tail = foldedWord<Word>(text.substr(text.size() - sizeof(Word)));
    return (head * 0x9E3779B97F4A7C15) ^ std::rotl(tail * 0xC2B2AE3D27D4EB4F, 32) ^ text.size();
  };
  if (text.size() >= 8) return mix(std::uint64_t{});
  return text.size() >= 4 ? mix(std::uint32_t{}) : mix(std::uint16_t{});
}

constexpr std::size_t kSlotBits = 12;

constexpr std::size_t slotOf(std::string_view text) { return hashOf(text) >> (64 - kSlotBits); }
constexpr std::size_t slotAfter(std::size_t slot) { return (slot + 1) % (1U << kSlotBits); }

/// Position plus one of the entry that has the slot, 0 for a free slot. An entry whose own slot is
/// taken has the next free one. The compiler fills it.
constexpr auto kSlots = [] {
  std::array<std::uint16_t, 1U << kSlotBits> slots{};
  std::uint16_t number = 0;
  for (const auto& entry : kItalianLabels) {
    auto slot = slotOf(entry.label);
    while (slots[slot] != 0) slot = slotAfter(slot);
    slots[slot] = ++number;
  }
  return slots;
}();

/// The entry whose label is `text` but for the case of ASCII letters, or null.
const Translation* entryOf(std::string_view text) {
  if (text.size() < 2) return nullptr;  // No label is that short.
  for (auto slot = slotOf(text); kSlots[slot] != 0; slot = slotAfter(slot)) {
    const auto& entry = kItalianLabels[kSlots[slot] - 1U];
    // Most labels are in lower case already, and bytes compare faster.
    if (entry.label == text || platform::equalIgnoringCase(entry.label, text)) return &entry;
  }
  return nullptr;
}

// The one character beyond ASCII whose lower-case form is ASCII: KELVIN SIGN, U+212A, becomes "k".
// Labels are ASCII, so with it and A to Z lower-casing by all of Unicode finds the same entries.
constexpr std::string_view kKelvinSign = "\u212A";

constexpr std::size_t kLongestLabel = std::ranges::max(kItalianLabels, {}, [](const auto& entry) {
                                        return entry.label.size();
                                      }).label.size();

const Translation* entryOfAnyCase(std::string_view text) {
  const auto* const entry = entryOf(text);
  if (entry != nullptr || text.size() > kLongestLabel * kKelvinSign.size()) return entry;
  auto at = text.find(kKelvinSign);
  if (at == std::string_view::npos) return nullptr;
  std::string plain(text);
  for (; at != std::string::npos; at = plain.find(kKelvinSign, at)) {
    plain.replace(at, kKelvinSign.size(), "k");
  }
  return entryOf(plain);
}

std::optional<ItalianName> nameFromWords(std::string_view label) {
  std::string names;
  std::size_t count = 0;
  while (!label.empty()) {
    const auto word = label.substr(0, label.find(' '));
    label.remove_prefix(std::min(word.size() + 1, label.size()));
    if (word.empty()) continue;
    const auto* const entry = entryOfAnyCase(word);
    if (entry == nullptr) return std::nullopt;
    if (count++ > 0) names += ' ';
    names += entry->italianName;
  }
  if (count < 2) return std::nullopt;
  return ItalianName(std::move(names));
}

}  // namespace

std::optional<ItalianName> TagLocalization::italianName(std::string_view label) {
  if (const auto* const entry = entryOfAnyCase(label)) return ItalianName(entry->italianName);
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
