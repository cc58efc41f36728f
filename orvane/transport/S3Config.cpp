#include <orvane/transport/S3Config.h>

#include <orvane/platform/base/Ascii.h>
#include <orvane/platform/base/PercentEncoding.h>
#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>

#include <utility>

namespace orvane {
namespace {

bool readTenantName(simdjson::ondemand::value& value, S3Config& config) {
  config.tenantName.reset();
  return platform::readNull(value) || platform::read(value, config.tenantName.emplace());
}

constexpr platform::Members<S3Config, 7> kMembers{
    {platform::requiredMember<S3Config, &S3Config::bucket>("bucket"),
     platform::requiredMember<S3Config, &S3Config::region>("region"),
     platform::requiredMember<S3Config, &S3Config::accessKey>("accessKey"),
     platform::requiredMember<S3Config, &S3Config::secretKey>("secretKey"),
     platform::requiredMember<S3Config, &S3Config::prefix>("prefix"),
     platform::requiredMember<S3Config, &S3Config::endpoint>("endpoint"),
     {"tenantName", false, readTenantName}}};

}  // namespace

std::optional<S3Config> S3Config::fromJson(std::string_view text) {
  S3Config config;
  const bool valid = platform::readDocument(
      simdjson::padded_string(text), [&](simdjson::ondemand::object& object) {
        return platform::readMembers(object, kMembers, config);
      });
  if (!valid) return std::nullopt;
  return config;
}

std::string S3Config::toJson() const {
  platform::JsonWriter writer;
  writer.beginObject();
  writer.member("bucket", bucket);
  writer.member("region", region);
  writer.member("accessKey", accessKey);
  writer.member("secretKey", secretKey);
  writer.member("prefix", prefix);
  writer.member("endpoint", endpoint);
  if (tenantName) writer.member("tenantName", *tenantName);
  writer.endObject();
  return writer.ok() ? std::string(writer.text()) : std::string();
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
