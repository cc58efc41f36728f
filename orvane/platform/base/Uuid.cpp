#include <orvane/platform/base/Uuid.h>

#include <orvane/platform/base/Ascii.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <stdexcept>

namespace orvane::platform {
namespace {

std::string upperCaseTextOf(const boost::uuids::uuid& uuid) {
  auto text = boost::uuids::to_string(uuid);
  std::ranges::transform(text, text.begin(), [](char c) { return c >= 'a' ? c - 'a' + 'A' : c; });
  return text;
}

}  // namespace

std::string randomUuid() { return upperCaseTextOf(boost::uuids::random_generator()()); }

std::optional<std::string> uuidFrom(std::string_view text) {
  // The generator takes other forms too, but this one alone has so many characters.
  constexpr std::size_t kLength = 36;
  if (text.size() != kLength) return std::nullopt;
  try {
    return upperCaseTextOf(boost::uuids::string_generator()(text.begin(), text.end()));
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

}  // namespace orvane::platform
