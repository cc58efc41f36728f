#include <orvane/platform/Ascii.h>
#include <orvane/platform/PercentEncoding.h>
#include <orvane/transport/S3Config.h>
#include <rapidjson/encodings.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <array>
#include <initializer_list>
#include <utility>

namespace orvane {
namespace {

using RequiredMember = std::pair<std::string_view, std::string S3Config::*>;
constexpr std::array<RequiredMember, 6> kRequired{{{"bucket", &S3Config::bucket},
                                                   {"region", &S3Config::region},
                                                   {"accessKey", &S3Config::accessKey},
                                                   {"secretKey", &S3Config::secretKey},
                                                   {"prefix", &S3Config::prefix},
                                                   {"endpoint", &S3Config::endpoint}}};
constexpr std::string_view kTenantName = "tenantName";

/// Reads a text member; false when it is missing or of another type. Of repeated members the last
/// one counts.
bool readText(const simdjson::dom::object& object, std::string_view name, std::string& text) {
  bool valid = false;
  for (const auto& [key, value] : object) {
    if (key != name) continue;
    std::string_view content;
    valid = value.get(content) == simdjson::SUCCESS;
    text = content;
  }
  return valid;
}

}  // namespace

std::optional<S3Config> S3Config::fromJson(std::string_view text) {
  simdjson::dom::parser parser;
  simdjson::dom::object object;
  if (parser.parse(text.data(), text.size()).get(object) != simdjson::SUCCESS) return std::nullopt;
  S3Config config;
  for (const auto& [name, member] : kRequired) {
    if (!readText(object, name, config.*member)) return std::nullopt;
  }
  simdjson::dom::element tenant;
  if (object.at_key(kTenantName).get(tenant) == simdjson::SUCCESS && !tenant.is_null()) {
    if (!readText(object, kTenantName, config.tenantName.emplace())) return std::nullopt;
  }
  return config;
}

std::string S3Config::toJson() const {
  rapidjson::StringBuffer output;
  rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>,
                    rapidjson::CrtAllocator, rapidjson::kWriteValidateEncodingFlag>
      writer(output);
  const auto write = [&](std::string_view text) {
    return writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  };
  bool valid = writer.StartObject();
  for (const auto& [name, member] : kRequired) valid = valid && write(name) && write(this->*member);
  if (tenantName) valid = valid && write(kTenantName) && write(*tenantName);
  valid = valid && writer.EndObject();
  return valid ? std::string(output.GetString(), output.GetSize()) : std::string();
}

bool S3Config::isValid() const noexcept {
  return !bucket.empty() && !region.empty() && !accessKey.empty() && !secretKey.empty() &&
         !endpoint.empty();
}

std::string S3Config::host() const {
  const auto parsed = Url::parse(endpoint);
  return parsed && !parsed->host().empty() ? std::string(parsed->host()) : endpoint;
}

std::optional<Url> S3Config::url(std::string_view forKey) const {
  std::string text(platform::trimmed(endpoint, '/'));
  text.append("/").append(bucket).append("/");
  // The allowed set holds "/", so the separators of the segments stay as they are.
  platform::appendPercentEncoded(text, prefix, platform::kUrlPathAllowed);
  platform::appendPercentEncoded(text, forKey, platform::kUrlPathAllowed);
  return Url::parse(std::move(text));
}

}  // namespace orvane
