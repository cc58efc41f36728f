// The host's configuration, and the URL of an object that follows from it: the input's lines are
// the object's key and the configuration.

#include <orvane/transport/S3Config.h>

#include "IsJson.h"
#include "Require.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvane::S3Config;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto key = input.substr(0, input.find('\n'));
  const auto text = input.substr(std::min(key.size() + 1, input.size()));
  const auto config = S3Config::fromJson(text);
  if (!config) return 0;
  require(isJson(text));
  require(S3Config::fromJson(config->toJson()) == config);
  const auto url = config->url(key);
  if (url) require(orvane::Url::parse(url->text()) == url);
  return 0;
}
