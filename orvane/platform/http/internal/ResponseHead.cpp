#include <orvane/platform/http/internal/ResponseHead.h>

#include <orvane/platform/base/Utf8.h>

namespace orvane::platform {
namespace {

/// More lines than any store sends; combining fields of one name takes quadratic time.
constexpr std::size_t kMaxLines = 1000;
/// Below the limit from which on libcurl itself fails, with an error that says less.
constexpr std::size_t kMaxBytes = std::size_t{128} * 1024;

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

std::string textFrom(std::string value) {
  if (isUtf8(value)) return value;
  std::string text;
  for (const char byte : value) text += utf8Of(static_cast<unsigned char>(byte));
  return text;
}

}  // namespace

bool ResponseHead::read(std::string_view line) {
  bytes_ += line.size();
  if (++lines_ > kMaxLines || bytes_ > kMaxBytes) return false;
  if (isComplete_) return true;
  // An interim response is followed by the head of another one; after 101, which no request here
  // asks for, the library takes what comes for a body, and the response stays incomplete.
  if (line.starts_with("HTTP/")) {
    isInterim_ = line.substr(line.find(' ') + 1).starts_with('1');
  } else if (!isInterim_) {
    readField(line);
  }
  return true;
}

void ResponseHead::readField(std::string_view line) {
  const auto text = withoutBlanks(line);
  if (line.starts_with(' ') || line.starts_with('\t')) {
    if (!value_.empty() && !text.empty()) value_ += ' ';
    value_ += text;
    return;
  }
  addField();
  isComplete_ = text.empty();
  const auto colon = text.find(':');
  if (colon == std::string_view::npos) return;
  name_ = withoutBlanks(text.substr(0, colon));
  value_ = withoutBlanks(text.substr(colon + 1));
}

void ResponseHead::addField() {
  if (!name_.empty()) headers_.append(name_, textFrom(std::move(value_)));
  name_.clear();
  value_.clear();
}

}  // namespace orvane::platform
