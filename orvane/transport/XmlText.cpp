#include <orvane/transport/XmlText.h>

#include <orvane/platform/base/Utf8.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace orvane {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kNamed{
    {{"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}}};

std::string numbered(std::string_view digits) {
  const bool hexadecimal = digits.starts_with('x');
  if (hexadecimal) digits.remove_prefix(1);
  std::uint32_t codePoint = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), codePoint,
                                            hexadecimal ? 16 : 10);
  const bool whole = error == std::errc{} && end == digits.data() + digits.size();
  return whole && codePoint != 0 ? platform::utf8Of(codePoint) : std::string();
}

/// What a reference stands for, given what is between "&" and ";"; empty for none.
std::string characterOf(std::string_view name) {
  if (name.starts_with('#')) return numbered(name.substr(1));
  const auto* const found =
      std::ranges::find(kNamed, name, &std::pair<std::string_view, std::string_view>::first);
  return found == kNamed.end() ? std::string() : std::string(found->second);
}

}  // namespace

std::string withoutXmlReferences(std::string_view text) {
  std::string plain;
  for (;;) {
    const auto start = text.find('&');
    plain.append(text.substr(0, start));
    if (start == std::string_view::npos) return plain;
    text.remove_prefix(start + 1);
    // A number may begin with any number of zeros; but where another "&" follows, this one begins
    // no reference, so nothing is looked at more than twice.
    const auto length = std::min(text.find_first_of("&;"), text.size());
    const auto character =
        text.substr(length).starts_with(';') ? characterOf(text.substr(0, length)) : std::string();
    plain.append(character.empty() ? "&" : character);
    if (!character.empty()) text.remove_prefix(length + 1);
  }
}

}  // namespace orvane
