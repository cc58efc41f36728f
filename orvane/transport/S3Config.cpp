#include <orvane/platform/Ascii.h>
#include <orvane/platform/PercentEncoding.h>
#include <orvane/platform/internal/JsonReader.h>
#include <orvane/platform/internal/JsonWriter.h>
#include <orvane/transport/S3Config.h>

#include <utility>

namespace orvane {
namespace {

namespace ondemand = simdjson::ondemand;

bool readTenantName(ondemand::value& value, S3Config& config) {
  config.tenantName.reset();
  return internal::readNull(value) || internal::read(value, config.tenantName.emplace());
}

constexpr internal::Members<S3Config, 7> kMembers{
    {internal::requiredMember<S3Config, &S3Config::bucket>("bucket"),
     internal::requiredMember<S3Config, &S3Config::region>("region"),
     internal::requiredMember<S3Config, &S3Config::accessKey>("accessKey"),
     internal::requiredMember<S3Config, &S3Config::secretKey>("secretKey"),
     internal::requiredMember<S3Config, &S3Config::prefix>("prefix"),
     internal::requiredMember<S3Config, &S3Config::endpoint>("endpoint"),
     {"tenantName", false, readTenantName}}};

}  // namespace

std::optional<S3Config> S3Config::fromJson(std::string_view text) {
  S3Config config;
  const bool valid = internal::readDocument(
      simdjson::padded_string(text),
      [&](ondemand::object& object) { return internal::readMembers(object, kMembers, config); });
  if (!valid) return std::nullopt;
  return config;
}

std::string S3Config::toJson() const {
  internal::JsonWriter writer;
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
