// The description of an ONNX model; it names its own file as labels too.

#include <orvane/platform/vision/internal/OnnxDescription.h>

#include "Require.h"

#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <fstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto folder = std::filesystem::path("/dev/shm") / std::to_string(getpid());
  std::filesystem::create_directory(folder);
  const auto file = folder / "labels.txt";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  const auto description = orvane::platform::readOnnxDescription(file);
  if (!description) {
    require(!description.error().description().empty());
    return 0;
  }
  require(description->width > 0 && description->height > 0 && !description->labels.empty());
  require(std::isfinite(description->scale));
  for (const auto deviation : description->deviation) require(deviation != 0);
  return 0;
}
