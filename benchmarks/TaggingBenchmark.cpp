// What tagging a photograph of 12 megapixels costs (decoding it small, naming the scene, choosing
// tags), against decoding it at its full size with libvips in the same run; in seconds of CPU,
// since both use several threads or processes.

#include <orvane/platform/images/internal/VipsHandle.h>
#include <orvane/tagging/ImageTagger.h>

#include "Ratio.h"

#include <benchmark/benchmark.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace orvane {
namespace {

namespace asio = boost::asio;
using platform::operate;
using Image = platform::VipsHandle<VipsImage>;

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

/// Grain of that many pixels, as large as the photograph, in three colours.
Image grain(int pixels, double strength) {
  VipsImage* bands[3] = {};
  for (auto& band : bands) {
    vips_gaussnoise(&band, kWidth / pixels + 2, kHeight / pixels + 2, "sigma", strength, "mean",
                    0.0, nullptr);
  }
  VipsImage* joined = nullptr;
  vips_bandjoin(bands, &joined, 3, nullptr);
  for (auto* band : bands) g_object_unref(band);
  const auto large =
      operate(Image(joined), vips_resize, static_cast<double>(pixels), "kernel", VIPS_KERNEL_CUBIC);
  return operate(large, vips_crop, 0, 0, kWidth, kHeight);
}

/// A photograph in what its decoder has to do: detail of every size, most of it large.
class Photograph {
 public:
  Photograph() : file_(std::filesystem::temp_directory_path() / name()) {
    vips_init("benchmark");
    auto image = grain(1, 3);
    for (int pixels = 4; pixels <= 256; pixels *= 4) {
      VipsImage* sum = nullptr;
      vips_add(image.get(), grain(pixels, 6.0 + pixels / 8.0).get(), &sum, nullptr);
      image.reset(sum);
    }
    image = operate(operate(image, vips_linear1, 1.0, 120.0), vips_copy, "interpretation",
                    VIPS_INTERPRETATION_sRGB);
    image = operate(image, vips_cast_uchar);
    const auto target = file_.string() + "[Q=90]";
    if (!image || vips_image_write_to_file(image.get(), target.c_str(), nullptr) != 0) {
      throw std::runtime_error(vips_error_buffer());
    }
  }
  ~Photograph() { std::filesystem::remove(file_); }
  Photograph(const Photograph&) = delete;
  Photograph& operator=(const Photograph&) = delete;

  [[nodiscard]] const std::filesystem::path& file() const { return file_; }

 private:
  static std::string name() { return "orvane-benchmark-" + std::to_string(getpid()) + ".jpg"; }

  std::filesystem::path file_;
};

void tag(const std::filesystem::path& file) {
  asio::io_context context;
  auto tags = asio::co_spawn(context, ImageTagger::shared().tagImage(file), asio::use_future);
  context.run();
  benchmark::DoNotOptimize(tags.get());
}

void decodeWhole(const std::filesystem::path& file) {
  const Image image(
      vips_image_new_from_file(file.c_str(), "access", VIPS_ACCESS_SEQUENTIAL, nullptr));
  std::size_t size = 0;
  void* pixels = image ? vips_image_write_to_memory(image.get(), &size) : nullptr;
  if (pixels == nullptr) throw std::runtime_error(vips_error_buffer());
  g_free(pixels);
}

void TagAPhotograph(benchmark::State& state) {
  const Photograph photograph;
  tag(photograph.file());  // Starts what is started once.
  benchmarks::Ratio ratio(state, benchmarks::Ratio::Clock::cpuWithChildren);
  for (auto _ : state) {
    ratio.engine([&] { tag(photograph.file()); });
    ratio.floor([&] { decodeWhole(photograph.file()); });
  }
  ratio.report();
  state.counters["megabytes"] = static_cast<double>(file_size(photograph.file())) / 1e6;
}
BENCHMARK(TagAPhotograph)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2);

}  // namespace
}  // namespace orvane
