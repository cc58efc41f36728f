// A page of a listing: the scan must find exactly what these regular expressions match, here by
// PCRE2, with "." stopping at every line break that Unicode knows.

#define PCRE2_CODE_UNIT_WIDTH 8

#include <orvane/platform/base/Utf8.h>
#include <orvane/transport/Listing.h>

#include "Require.h"

#include <pcre2.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using orvane::KeyETagPair;

template <auto function>
struct Deleter {
  void operator()(auto* object) const { function(object); }
};

class Expression {
 public:
  explicit Expression(std::string_view pattern) {
    int error = 0;
    PCRE2_SIZE place = 0;
    const Context context(pcre2_compile_context_create(nullptr));
    pcre2_set_newline(context.get(), PCRE2_NEWLINE_ANY);
    code_.reset(
        pcre2_compile(units(pattern), pattern.size(), PCRE2_UTF, &error, &place, context.get()));
    require(code_ != nullptr);
    match_.reset(pcre2_match_data_create_from_pattern(code_.get(), nullptr));
  }

  /// The first match in `text`, or the group that is asked for.
  [[nodiscard]] std::optional<std::string_view> firstIn(std::string_view text,
                                                        std::size_t group) const {
    const int count = pcre2_match(code_.get(), units(text), text.size(), 0, PCRE2_NO_UTF_CHECK,
                                  match_.get(), nullptr);
    if (count == PCRE2_ERROR_NOMATCH) return std::nullopt;
    require(count > 0);
    const auto* const places = pcre2_get_ovector_pointer(match_.get());
    return text.substr(places[2 * group], places[2 * group + 1] - places[2 * group]);
  }

 private:
  using Context = std::unique_ptr<pcre2_compile_context, Deleter<pcre2_compile_context_free>>;

  static PCRE2_SPTR units(std::string_view text) {
    return reinterpret_cast<PCRE2_SPTR>(text.data());
  }

  std::unique_ptr<pcre2_code, Deleter<pcre2_code_free>> code_;
  std::unique_ptr<pcre2_match_data, Deleter<pcre2_match_data_free>> match_;
};

std::vector<KeyETagPair> matchedPairs(std::string_view text) {
  static const Expression contents("<Contents>[\\s\\S]*?</Contents>");
  static const Expression key("<Key>(.*?)</Key>");
  static const Expression eTag("<ETag>(.*?)</ETag>");
  std::vector<KeyETagPair> pairs;
  while (const auto block = contents.firstIn(text, 0)) {
    text.remove_prefix(static_cast<std::size_t>(block->data() + block->size() - text.data()));
    if (const auto found = key.firstIn(*block, 1)) {
      const auto tag = eTag.firstIn(*block, 1).value_or("");
      pairs.push_back({std::string(*found), orvane::transport::etagFromXml(tag)});
    }
  }
  return pairs;
}

std::optional<std::string> matchedToken(std::string_view text) {
  static const Expression token("<NextContinuationToken>(.*?)</NextContinuationToken>");
  const auto found = token.firstIn(text, 1);
  return found && !found->empty() ? std::optional<std::string>(*found) : std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!orvane::platform::isUtf8(text)) return 0;
  require(orvane::transport::parseKeyETagPairs(text) == matchedPairs(text));
  require(orvane::transport::parseToken(text) == matchedToken(text));
  return 0;
}
