#include <orvane/bookkeeping/internal/MultipartStateJson.h>

namespace orvane::internal {
namespace {

bool readParts(ondemand::value& value, MultipartState& state) {
  auto& parts = state.completedParts;
  parts.clear();
  ondemand::object object;
  return !value.get_object().get(object) &&
         readMap(object, [&parts](std::string_view number, ondemand::value& etag) {
           return internal::read(etag, parts[std::string(number)]);
         });
}

}  // namespace

MultipartState MultipartStateJson::blank() { return {{}, {}, {}, {}, 0, 0, {}}; }

bool MultipartStateJson::read(ondemand::object& object, MultipartState& state) {
  using M = MultipartState;
  static constexpr Members<M, 7> kMembers = {{
      requiredMember<M, &M::assetId_>("assetId"),
      requiredMember<M, &M::uploadId_>("uploadId"),
      requiredMember<M, &M::key_>("key"),
      requiredMember<M, &M::contentType_>("contentType"),
      requiredMember<M, &M::totalParts_>("totalParts"),
      requiredMember<M, &M::fileSize_>("fileSize"),
      {"completedParts", true, readParts},
  }};
  return readMembers(object, kMembers, state);
}

bool MultipartStateJson::write(JsonWriter& writer, const MultipartState& state) {
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

}  // namespace orvane::internal
