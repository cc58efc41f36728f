#include <orvane/transport/internal/StoredParts.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/platform/base/Md5.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/internal/WholeNumber.h>

#include <algorithm>
#include <charconv>

namespace orvane::transport {
namespace {

constexpr std::size_t kMd5Digits = 32;
constexpr int kHexadecimal = 16;

std::optional<std::string_view> elementIn(std::string_view text, std::string_view name) {
  return nextElement(text, name);
}

std::optional<std::int64_t> numberIn(std::string_view text, std::string_view name) {
  const auto element = elementIn(text, name);
  if (!element) return std::nullopt;
  return wholeNumber(*element);
}

}  // namespace

StoredPartsPage storedPartsIn(std::string_view text) {
  StoredPartsPage page;
  if (elementIn(text, "IsTruncated") == "true") {
    page.next = numberIn(text, "NextPartNumberMarker");
  }
  while (const auto entry = nextElement(text, "Part")) {
    const auto number = numberIn(*entry, "PartNumber");
    const auto size = numberIn(*entry, "Size");
    const auto eTag = elementIn(*entry, "ETag");
    if (number && size && eTag) page.parts.push_back({*number, *size, etagFromXml(*eTag)});
  }
  return page;
}

bool isMd5(std::string_view eTag) noexcept {
  return eTag.size() == kMd5Digits &&
         eTag.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::optional<std::string> eTagOfParts(const std::vector<std::string>& eTags) {
  Bytes sums;
  for (const auto& eTag : eTags) {
    if (!isMd5(eTag)) return std::nullopt;
    for (std::size_t i = 0; i < kMd5Digits; i += 2) {
      unsigned value = 0;
      std::from_chars(&eTag[i], &eTag[i] + 2, value, kHexadecimal);
      sums.push_back(static_cast<std::byte>(value));
    }
  }
  return platform::hexString(platform::md5(sums)) + "-" + std::to_string(eTags.size());
}

}  // namespace orvane::transport
