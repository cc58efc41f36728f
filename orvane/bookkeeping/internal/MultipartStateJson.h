#pragma once

#include <orvane/bookkeeping/MultipartState.h>
#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>

namespace orvane::bookkeeping {

/// The JSON form of a `MultipartState`: an object with its seven fields, all of them required.
struct MultipartStateJson {
  /// A state to read into.
  [[nodiscard]] static MultipartState blank();

  /// Reads the object into `state`, which must be blank. False leaves it half read.
  [[nodiscard]] static bool read(simdjson::ondemand::object& object, MultipartState& state);

  /// Writes the state as one object. False when it has no JSON form.
  [[nodiscard]] static bool write(platform::JsonWriter& writer, const MultipartState& state);
};

}  // namespace orvane::bookkeeping
