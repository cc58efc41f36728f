#include <orvane/bookkeeping/internal/MultipartStateJson.h>

namespace orvane::bookkeeping {
namespace {

bool readParts(simdjson::ondemand::value& value, MultipartState& state) {
  auto& parts = state.completedParts;
  parts.clear();
  simdjson::ondemand::object object;
  return !value.get_object().get(object) &&
         platform::readMap(object,
                           [&parts](std::string_view number, simdjson::ondemand::value& etag) {
                             return platform::read(etag, parts[std::string(number)]);
                           });
}

}  // namespace

MultipartState MultipartStateJson::blank() { return {{}, {}, {}, {}, 0, 0, {}}; }

bool MultipartStateJson::read(simdjson::ondemand::object& object, MultipartState& state) {
  using M = MultipartState;
  static constexpr platform::Members<M, 7> kMembers = {{
      platform::requiredMember<M, &M::assetId_>("assetId"),
      platform::requiredMember<M, &M::uploadId_>("uploadId"),
      platform::requiredMember<M, &M::key_>("key"),
      platform::requiredMember<M, &M::contentType_>("contentType"),
      platform::requiredMember<M, &M::totalParts_>("totalParts"),
      platform::requiredMember<M, &M::fileSize_>("fileSize"),
      {"completedParts", true, readParts},
  }};
  return platform::readMembers(object, kMembers, state);
}

bool MultipartStateJson::write(platform::JsonWriter& writer, const MultipartState& state) {
  writer.beginObject();
  writer.member("assetId", state.assetId());
  writer.member("uploadId", state.uploadId());
  writer.member("key", state.key());
  writer.member("contentType", state.contentType());
  writer.member("totalParts", state.totalParts());
  writer.member("fileSize", state.fileSize());
  writer.name("completedParts");
  writer.beginObject();
  for (const auto& [number, etag] : state.completedParts) writer.member(number, etag);
  writer.endObject();
  writer.endObject();
  return writer.ok();
}

}  // namespace orvane::bookkeeping
