#include <orvane/bookkeeping/internal/BandwidthSampleJson.h>

#include <orvane/platform/base/Uuid.h>
#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>

namespace orvane::bookkeeping {
namespace {

using platform::read;

bool readUuid(simdjson::ondemand::value& value, std::string& result) {
  std::string text;
  if (!read(value, text)) return false;
  auto uuid = platform::uuidFrom(text);
  if (uuid) result = std::move(*uuid);
  return uuid.has_value();
}

}  // namespace

std::optional<BandwidthSampleJson::Samples> BandwidthSampleJson::decode(std::string_view json) {
  using S = BandwidthSample;
  static constexpr platform::Members<S, 3> kMembers = {{
      {"id", true,
       [](simdjson::ondemand::value& value, S& sample) { return readUuid(value, sample.id_); }},
      {"timestamp", true,
       [](simdjson::ondemand::value& value, S& sample) {
         return read(value, sample.timestamp_.secondsSinceReferenceDate);
       }},
      platform::requiredMember<S, &S::bytesPerSecond_>("bytesPerSecond"),
  }};
  Samples samples;
  const auto readSamples = [&samples](simdjson::ondemand::array& array) {
    for (auto item : array) {
      simdjson::ondemand::object object;
      samples.push_back(S());
      if (std::move(item).get_object().get(object)) return false;
      if (!platform::readMembers(object, kMembers, samples.back())) return false;
    }
    return true;
  };
  if (!platform::readDocument<simdjson::ondemand::array>(simdjson::padded_string(json),
                                                         readSamples)) {
    return std::nullopt;
  }
  return samples;
}

std::optional<std::string> BandwidthSampleJson::encode(const Samples& samples) {
  platform::JsonWriter writer;
  writer.beginArray();
  for (const auto& sample : samples) {
    writer.beginObject();
    writer.member("id", sample.id());
    writer.member("timestamp", sample.timestamp().secondsSinceReferenceDate);
    writer.member("bytesPerSecond", sample.bytesPerSecond());
    writer.endObject();
  }
  writer.endArray();
  if (!writer.ok()) return std::nullopt;
  return std::string(writer.text());
}

}  // namespace orvane::bookkeeping
