#pragma once

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Strict reading on top of simdjson's forward-only API, which by itself looks only at what it is
/// asked for. With these functions a text is accepted only when all of it is valid JSON, unknown
/// members included. Each reads its value whole or returns false, after which the document must not
/// be read on.
namespace orvane::platform {

namespace ondemand = simdjson::ondemand;

[[nodiscard]] bool read(ondemand::value& value, std::string& result);
/// The view lives as long as the text and until the parser reads another one.
[[nodiscard]] bool read(ondemand::value& value, std::string_view& result);
/// A whole number of 64 bits. One with a fraction or an exponent ("3.0", "30e-1") is first read as
/// a double, so it is rounded beyond 2^53.
[[nodiscard]] bool read(ondemand::value& value, std::int64_t& result);
[[nodiscard]] bool read(ondemand::value& value, double& result);
[[nodiscard]] bool read(ondemand::value& value, bool& result);
[[nodiscard]] bool read(ondemand::value& value, std::vector<std::string>& result);

/// Reads null. False leaves the value as it was, to be read as something else.
[[nodiscard]] bool readNull(ondemand::value& value);

/// Validates a value of any type (depth at most 512) and skips it.
[[nodiscard]] bool readAnything(ondemand::value& value);

/// The member's name; the view lives as long as the parser and its text. Once for each field.
[[nodiscard]] std::optional<std::string_view> nameOf(ondemand::field& field);

/// The text without the byte order mark before it. Empty, which is no JSON, when another mark
/// follows: only newer versions of simdjson skip that one.
[[nodiscard]] simdjson::padded_string_view documentIn(simdjson::padded_string_view text);

/// Reads a text that is one object, or one array, and nothing else but a byte order mark before it;
/// `readRoot` gets it as a `Root&`. A parser that reads many texts keeps its memory in between.
template <class Root = ondemand::object, class ReadRoot>
[[nodiscard]] bool readDocument(ondemand::parser& parser, simdjson::padded_string_view text,
                                ReadRoot&& readRoot) {
  ondemand::document document;
  Root root;
  return !parser.iterate(documentIn(text)).get(document) && !document.get(root) && readRoot(root) &&
         document.current_location().error() == simdjson::error_code::OUT_OF_BOUNDS;
}

template <class Root = ondemand::object, class ReadRoot>
[[nodiscard]] bool readDocument(const simdjson::padded_string& text, ReadRoot&& readRoot) {
  ondemand::parser parser;
  return readDocument<Root>(parser, text, std::forward<ReadRoot>(readRoot));
}

/// Reads an object as a map: `readEntry` gets each name and its `ondemand::value&`.
template <class ReadEntry>
[[nodiscard]] bool readMap(ondemand::object& object, ReadEntry&& readEntry) {
  for (auto member : object) {
    ondemand::field field;
    if (std::move(member).get(field)) return false;
    const auto name = nameOf(field);
    if (!name || !readEntry(*name, field.value())) return false;
  }
  return true;
}

/// How one member of an object gets into a `Target`.
template <class Target>
struct Member {
  std::string_view name;
  bool required;
  bool (*read)(ondemand::value& value, Target& target);
};

/// A required member that a field of the target takes as it is.
template <class Target, auto field>
constexpr Member<Target> requiredMember(std::string_view name) {
  return {name, true,
          [](ondemand::value& value, Target& target) { return read(value, target.*field); }};
}

template <class Target, std::size_t count>
using Members = std::array<Member<Target>, count>;

/// The position of the field's name among `members`, `count` when it is none of them, or nothing
/// when it is not even a valid text. Members mostly come in the order in which they are written, so
/// the search begins at `guess`, and names are compared as they stand before they are unescaped.
template <class Target, std::size_t count>
[[nodiscard]] std::optional<std::size_t> positionOf(ondemand::field& field,
                                                    const Members<Target, count>& members,
                                                    std::size_t guess) {
  for (std::size_t step = 0; step < count; ++step) {
    const auto position = (guess + step) % count;
    if (field.key().unsafe_is_equal(members[position].name)) return position;
  }
  const auto name = nameOf(field);
  if (!name) return std::nullopt;
  const auto found = std::ranges::find(members, *name, &Member<Target>::name);
  return static_cast<std::size_t>(found - members.begin());
}

/// Reads an object into `target`: every required member must be there, members of other names are
/// read and forgotten, and of members of one name the last one counts.
template <class Target, std::size_t count>
[[nodiscard]] bool readMembers(ondemand::object& object, const Members<Target, count>& members,
                               Target& target) {
  std::bitset<count> missing;
  for (std::size_t i = 0; i < count; ++i) missing[i] = members[i].required;
  std::size_t guess = 0;
  for (auto member : object) {
    ondemand::field field;
    if (std::move(member).get(field)) return false;
    const auto position = positionOf(field, members, guess);
    if (!position) return false;
    if (*position == count) {
      if (!readAnything(field.value())) return false;
      continue;
    }
    if (!members[*position].read(field.value(), target)) return false;
    missing.reset(*position);
    guess = *position + 1;
  }
  return missing.none();
}

}  // namespace orvane::platform
