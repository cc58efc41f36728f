#include <gtest/gtest.h>
#include <libheif/heif.h>
#include <orvane/platform/internal/ImageReader.h>
#include <orvane/platform/internal/VipsHandle.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;
using testing::testDirectory;

using Image = VipsHandle<VipsImage>;
using Colour = std::array<int, 3>;
constexpr Colour kRed{255, 0, 0};
constexpr Colour kGreen{0, 255, 0};
constexpr Colour kBlue{0, 0, 255};
constexpr Colour kWhite{255, 255, 255};

Image imageOf(int width, int height, const std::vector<double>& samples) {
  vips_init("test");
  VipsImage* black = nullptr;
  vips_black(&black, width, height, "bands", static_cast<int>(samples.size()), nullptr);
  VipsImage* image = nullptr;
  const std::vector<double> one(samples.size(), 1.0);
  const Image source(black);
  vips_linear(source.get(), &image, one.data(), samples.data(), static_cast<int>(samples.size()),
              nullptr);
  return Image(image);
}

Image meaning(const Image& image, VipsInterpretation interpretation, VipsBandFormat format) {
  return operate(operate(image, vips_cast, format), vips_copy, "interpretation", interpretation);
}

Image flat(int width, int height, Colour colour) {
  return meaning(imageOf(width, height, {colour.begin(), colour.end()}), VIPS_INTERPRETATION_sRGB,
                 VIPS_FORMAT_UCHAR);
}

/// Red and green above blue and white.
Image quarters(int width, int height) {
  const auto part = [&](Colour colour) { return flat(width / 2, height / 2, colour); };
  const auto red = part(kRed);
  const auto green = part(kGreen);
  const auto blue = part(kBlue);
  const auto white = part(kWhite);
  VipsImage* parts[] = {red.get(), green.get(), blue.get(), white.get()};
  VipsImage* joined = nullptr;
  vips_arrayjoin(parts, &joined, 4, "across", 2, nullptr);
  return Image(joined);
}

/// Writes to the test's folder; `name` may end in libvips' options for the writer.
bool save(const Image& image, const std::string& name) {
#ifdef __SANITIZE_THREAD__
  // How HEIF's encoder hands its work to other threads looks like races.
  if (name.ends_with(".heic") || name.ends_with(".avif")) return false;
#endif
  return vips_image_write_to_file(image.get(), (testDirectory() / name).c_str(), nullptr) == 0;
}

Result<RgbImage> readNamed(const std::string& name, int width, int height, ImageFit fit) {
  return readImage(testDirectory() / name.substr(0, name.find('[')), width, height, fit);
}

Colour pixel(const RgbImage& image, double across, double down) {
  const int x = static_cast<int>(across * image.width);
  const int y = static_cast<int>(down * image.height);
  const auto at = static_cast<std::size_t>((y * image.width + x) * 3);
  return {image.pixels[at], image.pixels[at + 1], image.pixels[at + 2]};
}

::testing::AssertionResult near(Colour seen, Colour expected, int tolerance) {
  for (std::size_t i = 0; i < 3; ++i) {
    if (std::abs(seen[i] - expected[i]) > tolerance) {
      return ::testing::AssertionFailure() << seen[0] << ',' << seen[1] << ',' << seen[2];
    }
  }
  return ::testing::AssertionSuccess();
}

void expectQuarters(const Result<RgbImage>& image, const std::array<Colour, 4>& colours) {
  ASSERT_TRUE(image) << image.error().description();
  ASSERT_EQ(image->pixels.size(), static_cast<std::size_t>(image->width * image->height * 3));
  EXPECT_TRUE(near(pixel(*image, 0.25, 0.25), colours[0], 12));
  EXPECT_TRUE(near(pixel(*image, 0.75, 0.25), colours[1], 12));
  EXPECT_TRUE(near(pixel(*image, 0.25, 0.75), colours[2], 12));
  EXPECT_TRUE(near(pixel(*image, 0.75, 0.75), colours[3], 12));
}

constexpr const char* kFormats[] = {"a.jpg",
                                    "b.jpg[interlace]",
                                    "a.png",
                                    "b.png[interlace]",
                                    "c.png[palette]",
                                    "a.webp",
                                    "b.webp[lossless]",
                                    "a.tif",
                                    "b.tif[tile,compression=deflate]",
                                    "c.tif[tile,compression=jpeg]",
                                    "a.heic",
                                    "a.avif"};

TEST(ImageReader, ReadsEachFormat) {
  const auto picture = quarters(640, 480);
  for (const std::string name : kFormats) {
    SCOPED_TRACE(name);
    if (!save(picture, name)) {
      EXPECT_TRUE(name == "a.heic" || name == "a.avif");  // Its encoder may not be installed.
      continue;
    }
    for (const int side : {50, 300, 640}) {
      const auto image = readNamed(name, side, side, ImageFit::inside);
      expectQuarters(image, {kRed, kGreen, kBlue, kWhite});
      EXPECT_EQ(image->width, side);
      EXPECT_NEAR(image->height, side * 0.75, 0.51);
    }
  }
}

TEST(ImageReader, TurnsEachOrientationUpright) {
  const std::array<std::array<Colour, 4>, 8> upright{{{kRed, kGreen, kBlue, kWhite},
                                                      {kGreen, kRed, kWhite, kBlue},
                                                      {kWhite, kBlue, kGreen, kRed},
                                                      {kBlue, kWhite, kRed, kGreen},
                                                      {kRed, kBlue, kGreen, kWhite},
                                                      {kBlue, kRed, kWhite, kGreen},
                                                      {kWhite, kGreen, kBlue, kRed},
                                                      {kGreen, kWhite, kRed, kBlue}}};
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    const auto picture = operate(quarters(320, 160), vips_copy);
    vips_image_set_int(picture.get(), VIPS_META_ORIENTATION, orientation);
    for (const std::string name : {"o.jpg", "o.tif"}) {
      ASSERT_TRUE(save(picture, name));
      const auto image = readNamed(name, 80, 60, ImageFit::inside);
      expectQuarters(image, upright.at(static_cast<std::size_t>(orientation - 1)));
      EXPECT_EQ(image->width, orientation <= 4 ? 80 : 30);
      EXPECT_EQ(image->height, orientation <= 4 ? 40 : 60);
    }
  }
}

TEST(ImageReader, FitsTheBox) {
  const struct {
    int width, height;
    ImageFit fit;
    int expectedWidth, expectedHeight;
  } cases[] = {{300, 100, ImageFit::inside, 60, 20},  {30, 10, ImageFit::inside, 30, 10},
               {2000, 1, ImageFit::inside, 60, 1},    {1, 2000, ImageFit::inside, 1, 60},
               {300, 100, ImageFit::stretch, 60, 60}, {1, 1, ImageFit::stretch, 60, 60},
               {2000, 1, ImageFit::cover, 60, 60},    {7, 5, ImageFit::cover, 60, 60}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height));
    for (const std::string name : {"f.jpg", "f.png", "f.webp"}) {
      ASSERT_TRUE(save(flat(c.width, c.height, kBlue), name));
      const auto image = readNamed(name, 60, 60, c.fit);
      ASSERT_TRUE(image) << image.error().description();
      EXPECT_EQ(image->width, c.expectedWidth);
      EXPECT_EQ(image->height, c.expectedHeight);
      EXPECT_TRUE(near(pixel(*image, 0.9, 0.9), kBlue, 12));
    }
  }
}

TEST(ImageReader, CoverShowsTheMiddle) {
  const auto middle = flat(100, 100, kGreen);
  const auto picture = operate(middle, vips_embed, 100, 0, 300, 100);
  ASSERT_TRUE(save(picture, "c.png"));
  const auto image = readNamed("c.png", 40, 40, ImageFit::cover);
  ASSERT_TRUE(image);
  for (const double at : {0.0, 0.5, 0.99}) EXPECT_EQ(pixel(*image, at, at), kGreen);
  const auto whole = readNamed("c.png", 40, 40, ImageFit::stretch);
  ASSERT_TRUE(whole);
  EXPECT_EQ(pixel(*whole, 0, 0), (Colour{0, 0, 0}));
}

TEST(ImageReader, ReducesByMeans) {
  const std::vector<std::uint8_t> samples{0, 100, 50, 250, 10, 30};
  const Image picture(
      vips_image_new_from_memory_copy(samples.data(), 6, 6, 1, 1, VIPS_FORMAT_UCHAR));
  ASSERT_TRUE(save(picture, "m.png"));
  const auto image = readNamed("m.png", 4, 1, ImageFit::stretch);
  ASSERT_TRUE(image);
  // Each new pixel covers one and a half of the old ones.
  EXPECT_EQ(pixel(*image, 0.0, 0)[0], 33);
  EXPECT_EQ(pixel(*image, 0.25, 0)[1], 67);
  EXPECT_EQ(pixel(*image, 0.5, 0)[2], 170);
  EXPECT_EQ(pixel(*image, 0.75, 0)[0], 23);
}

TEST(ImageReader, ConvertsEachKindOfPixelToSrgb) {
  const struct {
    const char* name;
    std::vector<double> samples;
    VipsInterpretation interpretation;
    VipsBandFormat format;
    Colour expected;
    int tolerance;
  } cases[] = {
      {"g.png", {77}, VIPS_INTERPRETATION_B_W, VIPS_FORMAT_UCHAR, {77, 77, 77}, 0},
      {"g16.png", {77 * 257}, VIPS_INTERPRETATION_GREY16, VIPS_FORMAT_USHORT, {77, 77, 77}, 1},
      {"ga.png", {77, 0}, VIPS_INTERPRETATION_B_W, VIPS_FORMAT_UCHAR, kWhite, 0},
      {"rgb16.png",
       {65535, 25700, 0},
       VIPS_INTERPRETATION_RGB16,
       VIPS_FORMAT_USHORT,
       {255, 100, 0},
       1},
      {"rgba.png",
       {255, 0, 0, 128},
       VIPS_INTERPRETATION_sRGB,
       VIPS_FORMAT_UCHAR,
       {255, 127, 127},
       1},
      {"rgba16.png",
       {65535, 0, 0, 32768},
       VIPS_INTERPRETATION_RGB16,
       VIPS_FORMAT_USHORT,
       {255, 127, 127},
       1},
      {"rgba.webp[lossless]",
       {255, 0, 0, 0},
       VIPS_INTERPRETATION_sRGB,
       VIPS_FORMAT_UCHAR,
       kWhite,
       0},
      {"bit.tif[bitdepth=1]", {255}, VIPS_INTERPRETATION_B_W, VIPS_FORMAT_UCHAR, kWhite, 0},
      {"cmyk.jpg",
       {0, 255, 255, 0},
       VIPS_INTERPRETATION_CMYK,
       VIPS_FORMAT_UCHAR,
       {235, 30, 35},
       25},
      {"cmyk.tif",
       {255, 255, 255, 255},
       VIPS_INTERPRETATION_CMYK,
       VIPS_FORMAT_UCHAR,
       {22, 22, 22},
       25},
      {"float.tif", {1, 0, 1}, VIPS_INTERPRETATION_scRGB, VIPS_FORMAT_FLOAT, {255, 0, 255}, 1},
      {"lab.tif", {100, 0, 0}, VIPS_INTERPRETATION_LAB, VIPS_FORMAT_FLOAT, kWhite, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(save(meaning(imageOf(64, 48, c.samples), c.interpretation, c.format), c.name))
        << vips_error_buffer();
    const auto image = readNamed(c.name, 32, 32, ImageFit::inside);
    ASSERT_TRUE(image) << image.error().description();
    EXPECT_TRUE(near(pixel(*image, 0.5, 0.5), c.expected, c.tolerance));
  }
}

TEST(ImageReader, FollowsProfilesThatAreOfUse) {
  const Colour colour{100, 200, 100};
  const auto wide = operate(flat(64, 48, colour), vips_icc_transform, "p3", "input_profile", "p3");
  ASSERT_TRUE(save(wide, "p3.jpg[Q=100,subsample_mode=off]"));
  auto image = readNamed("p3.jpg", 32, 32, ImageFit::inside);
  ASSERT_TRUE(image);
  EXPECT_LT(pixel(*image, 0.5, 0.5)[0], 80);

  const auto garbage = operate(flat(64, 48, colour), vips_copy);
  vips_image_set_blob_copy(garbage.get(), VIPS_META_ICC_NAME, "no profile at all", 17);
  ASSERT_TRUE(save(garbage, "garbage.jpg[Q=100,subsample_mode=off]"));
  image = readNamed("garbage.jpg", 32, 32, ImageFit::inside);
  ASSERT_TRUE(image);
  EXPECT_TRUE(near(pixel(*image, 0.5, 0.5), colour, 3));
}

void expectProblem(const Result<RgbImage>& image, ImageProblem problem) {
  ASSERT_FALSE(image);
  EXPECT_EQ(image.error().domain(), kImageErrorDomain) << image.error().description();
  EXPECT_EQ(image.error().code(), static_cast<int>(problem));
}

TEST(ImageReader, SaysWhatIsWrongWithAFile) {
  testing::writeFile(testDirectory() / "text.jpg", "Dear diary");
  testing::writeFile(testDirectory() / "empty.jpg", "");
  testing::writeFile(testDirectory() / "head.jpg", "\xFF\xD8\xFF\xE0");
  testing::writeFile(testDirectory() / "page.svg", "<svg width='8' height='8'/>");
  fs::create_directory(testDirectory() / "folder.jpg");
  ASSERT_EQ(mkfifo((testDirectory() / "pipe.jpg").c_str(), 0600), 0);
  const auto problemOf = [](const char* name) { return readNamed(name, 9, 9, ImageFit::inside); };
  expectProblem(problemOf("text.jpg"), ImageProblem::notAnImage);
  expectProblem(problemOf("empty.jpg"), ImageProblem::notAnImage);
  expectProblem(problemOf("page.svg"), ImageProblem::notAnImage);
  expectProblem(problemOf("head.jpg"), ImageProblem::damaged);
  const std::map<std::string, int> numbers{
      {"folder.jpg", EINVAL}, {"pipe.jpg", EINVAL}, {"missing.jpg", ENOENT}};
  for (const auto& [name, number] : numbers) {
    const auto image = problemOf(name.c_str());
    ASSERT_FALSE(image);
    EXPECT_EQ(image.error().domain(), Error::kPosix);
    EXPECT_EQ(image.error().code(), number) << name;
  }
}

TEST(ImageReader, HalfAFileIsDamaged) {
  Image noise = quarters(640, 480);
  for (const std::string name : kFormats) {
    SCOPED_TRACE(name);
    if (!save(noise, name)) continue;
    const auto file = testDirectory() / name.substr(0, name.find('['));
    const auto whole = testing::readFile(file);
    for (const double share : {0.9, 0.5, 0.1}) {
      testing::writeFile(
          file,
          whole.substr(0, static_cast<std::size_t>(static_cast<double>(whole.size()) * share)));
      // Where a TIFF has lost its contents, which come last, libvips does not know it any more.
      const bool isLost = file.extension() == ".tif";
      ::testing::internal::CaptureStderr();
      expectProblem(readImage(file, 64, 64, ImageFit::inside),
                    isLost ? ImageProblem::notAnImage : ImageProblem::damaged);
      EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    }
  }
}

long memoryFigure(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  return -1;
}

/// Prints the code of the error (0 for none) and by how many KiB the largest memory has grown.
const testing::ChildMain kReadAndMeasure("readAndMeasure", [](const auto& arguments) {
  const long before = memoryFigure("VmHWM");
  const auto image = readImage(arguments.at(0), 256, 256, ImageFit::inside);
  std::printf("%d %ld\n", image ? 0 : static_cast<int>(image.error().code()),
              memoryFigure("VmHWM") - before);
  return 0;
});

std::uint32_t crcOf(std::string_view bytes) {
  std::uint32_t crc = ~0U;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
  }
  return ~crc;
}

std::string bigEndian(std::uint32_t number, int bytes) {
  std::string text;
  while (bytes-- > 0)
    text += static_cast<char>((number >> (8U * static_cast<unsigned>(bytes))) & 0xFFU);
  return text;
}

/// Makes a small image claim 30,000 by 30,000 pixels.
void inflate(const fs::path& file) {
  auto content = testing::readFile(file);
  const std::uint32_t side = 30'000;
  if (file.extension() == ".png") {
    content.replace(16, 8, bigEndian(side, 4) + bigEndian(side, 4));
    content.replace(29, 4, bigEndian(crcOf(content.substr(12, 17)), 4));
  } else {
    const auto frame = std::min(content.find("\xFF\xC0"), content.find("\xFF\xC2"));
    content.replace(frame + 5, 4, bigEndian(side, 2) + bigEndian(side, 2));
  }
  testing::writeFile(file, content);
}

TEST(ImageReader, MemoryIsBounded) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers keep memory of their own";
#endif
  const struct {
    const char* name;
    int side;
    bool inflated;
    int code;
  } cases[] = {{"bomb.jpg", 64, true, 3},
               {"bomb2.jpg[interlace]", 64, true, 3},
               {"bomb.png", 64, true, 3},
               {"bomb2.png[interlace]", 64, true, 3},
               {"bomb.webp[lossless,effort=0]", 16383, false, 3},
               {"bomb.tif[tile,compression=deflate]", 14000, false, 3},
               {"large.jpg", 14200, false, 0},
               {"large.png[compression=1]", 14200, false, 0}};  // 200 megapixels
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(save(flat(c.side, c.side, kBlue), c.name));
    const std::string name(c.name);
    const auto file = testDirectory() / name.substr(0, name.find('['));
    if (c.inflated) inflate(file);
    const auto output = testing::outputOfChild("readAndMeasure", {file.string()});
    int code = -1;
    long growth = 0;
    ASSERT_EQ(std::sscanf(output.c_str(), "%d %ld", &code, &growth), 2);
    EXPECT_EQ(code, c.code);
    EXPECT_LE(growth, 200 * 1024);
    fs::remove(file);
  }
}

using HeifImage = std::unique_ptr<heif_image, decltype(&heif_image_release)>;

HeifImage greyHeif(int side, int light) {
  heif_image* image = nullptr;
  heif_image_create(side, side, heif_colorspace_monochrome, heif_chroma_monochrome, &image);
  heif_image_add_plane(image, heif_channel_Y, side, side, 8);
  int stride = 0;
  auto* pixels = heif_image_get_plane(image, heif_channel_Y, &stride);
  std::fill_n(pixels, std::ptrdiff_t{stride} * side, static_cast<std::uint8_t>(light));
  return {image, heif_image_release};
}

/// A white picture with a black copy embedded.
bool saveWithEmbedded(const fs::path& file, int side, int embeddedSide) {
  const std::unique_ptr<heif_context, decltype(&heif_context_free)> context(heif_context_alloc(),
                                                                            heif_context_free);
  heif_encoder* encoder = nullptr;
  if (heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &encoder).code != 0)
    return false;
  heif_image_handle* picture = nullptr;
  heif_image_handle* embedded = nullptr;
  heif_context_encode_image(context.get(), greyHeif(side, 255).get(), encoder, nullptr, &picture);
  // It is made of any image, reduced to the size wanted.
  heif_context_encode_thumbnail(context.get(), greyHeif(2 * embeddedSide, 0).get(), picture,
                                encoder, nullptr, embeddedSide, &embedded);
  heif_encoder_release(encoder);
  heif_image_handle_release(picture);
  if (embedded != nullptr) heif_image_handle_release(embedded);
  return heif_context_write_to_file(context.get(), file.c_str()).code == 0;
}

TEST(ImageReader, AnEmbeddedCopyServesUnlessItIsLarger) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "how HEIF's encoder hands its work to other threads looks like races";
#endif
  const struct {
    int side, embedded, light;
  } cases[] = {{1024, 256, 0}, {1024, 128, 255}, {64, 2048, 255}};
  for (const auto& [side, embedded, light] : cases) {
    SCOPED_TRACE(embedded);
    const auto file = testDirectory() / "a.heic";
    if (!saveWithEmbedded(file, side, embedded)) GTEST_SKIP() << "no HEIF encoder";
    const auto image = readImage(file, 192, 192, ImageFit::inside);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, std::min(side, 192));
    EXPECT_NEAR(image->pixels[0], light, 3);
  }
}

TEST(ImageReader, ManyThreadsDoNotMixUpTheirFiles) {
  ASSERT_TRUE(save(quarters(640, 480), "good.jpg"));
  ASSERT_TRUE(save(quarters(640, 480), "good.png"));
  const auto whole = testing::readFile(testDirectory() / "good.jpg");
  testing::writeFile(testDirectory() / "half.jpg", whole.substr(0, whole.size() / 2));
  testing::writeFile(testDirectory() / "text.jpg", "Dear diary");
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 10; ++round) {
        if (i == 0) {
          expectProblem(readNamed("half.jpg", 64, 64, ImageFit::inside), ImageProblem::damaged);
          expectProblem(readNamed("text.jpg", 64, 64, ImageFit::inside), ImageProblem::notAnImage);
        } else {
          expectQuarters(readNamed(i % 2 == 0 ? "good.jpg" : "good.png", 64, 64, ImageFit::inside),
                         {kRed, kGreen, kBlue, kWhite});
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

/// Ends while other threads decode, after the first of them have.
const testing::ChildMain kExitWhileReading("exitWhileReading", [](const auto& arguments) {
  static std::counting_semaphore<> read(0);
  for (const auto& file : arguments) {
    std::thread([file] {
      for (;;) {
        if (readImage(file, 64, 64, ImageFit::cover)) read.release();
      }
    }).detach();
  }
  for (std::size_t i = 0; i < arguments.size(); ++i) read.acquire();
  return 0;
});

TEST(ImageReader, TheProcessMayEndMeanwhile) {
  std::vector<std::string> files;
  for (const std::string name : {"a.jpg", "a.png", "a.webp", "a.tif", "a.heic"}) {
    if (save(quarters(640, 480), name)) files.push_back((testDirectory() / name).string());
  }
  for (int i = 0; i < 5; ++i) {
    auto child = testing::ChildProcess::run("exitWhileReading", files);
    EXPECT_EQ(child.wait(), 0);
  }
}

}  // namespace
}  // namespace orvane::platform
