#include <orvane/platform/http/HttpHeaders.h>

#include <orvane/platform/base/Ascii.h>

#include <algorithm>

namespace orvane {

void HttpHeaders::set(std::string_view name, std::string_view value) {
  if (auto* field = find(name)) {
    field->first = name;
    field->second = value;
  } else {
    fields_.emplace_back(name, value);
  }
}

void HttpHeaders::append(std::string_view name, std::string_view value) {
  if (auto* field = find(name)) {
    field->second.append(", ").append(value);
  } else {
    fields_.emplace_back(name, value);
  }
}

std::optional<std::string_view> HttpHeaders::get(std::string_view name) const noexcept {
  for (const auto& [candidate, value] : fields_) {
    if (platform::equalIgnoringCase(candidate, name)) return value;
  }
  return std::nullopt;
}

HttpHeaders::Field* HttpHeaders::find(std::string_view name) noexcept {
  const auto field = std::ranges::find_if(fields_, [&](const Field& candidate) {
    return platform::equalIgnoringCase(candidate.first, name);
  });
  return field == fields_.end() ? nullptr : &*field;
}

}  // namespace orvane
