#include <orvane/platform/images/ImageReader.h>

#include <orvane/platform/images/internal/VipsHandle.h>

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

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
               {1000, 10, ImageFit::inside, 60, 1},   {20, 2000, ImageFit::inside, 1, 60},
               {300, 100, ImageFit::stretch, 60, 60}, {1, 1, ImageFit::stretch, 60, 60},
               {1000, 10, ImageFit::cover, 60, 60},   {7, 5, ImageFit::cover, 60, 60}};
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
  for (const double at : {0.0, 0.5, 0.99}) EXPECT_TRUE(near(pixel(*image, at, at), kGreen, 5));
  const auto whole = readNamed("c.png", 40, 40, ImageFit::stretch);
  ASSERT_TRUE(whole);
  EXPECT_EQ(pixel(*whole, 0, 0), (Colour{0, 0, 0}));
}

/// How far two images of one size are apart, on average.
double distance(const RgbImage& a, const RgbImage& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) sum += std::abs(a.pixels[i] - b.pixels.at(i));
  return sum / static_cast<double>(a.pixels.size());
}

Image noise(int width, int height, int grain) {
  VipsImage* image = nullptr;
  vips_perlin(&image, width, height, "cell_size", grain, "uchar", TRUE, nullptr);
  return meaning(Image(image), VIPS_INTERPRETATION_B_W, VIPS_FORMAT_UCHAR);
}

TEST(ImageReader, AReducedImageDoesNotDependOnItsWidth) {
  const auto picture = noise(1600, 1200, 12);
  std::optional<RgbImage> first;
  for (const int width : {400, 800, 1536, 1600}) {
    const auto copy = operate(picture, vips_resize, width / 1600.0);
    for (const std::string name : {"w.png", "w.jpg[Q=95]", "w.webp[Q=95]", "w.tif"}) {
      SCOPED_TRACE(name + " " + std::to_string(width));
      ASSERT_TRUE(save(copy, name));
      const auto image = readNamed(name, 192, 192, ImageFit::inside);
      ASSERT_TRUE(image);
      if (!first) first = *image;
      EXPECT_LT(distance(*image, *first), 1.5);
    }
  }
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

void expectProblem(const std::string& name, ImageProblem problem) {
  const auto image = readNamed(name, 64, 64, ImageFit::inside);
  ASSERT_FALSE(image) << name;
  EXPECT_EQ(image.error().domain(), kImageErrorDomain) << image.error().description();
  EXPECT_EQ(image.error().code(), static_cast<int>(problem)) << image.error().description();
}

TEST(ImageReader, NamesTheFileAndWhatIsWrongWithIt) {
  testing::writeFile(testDirectory() / "text.jpg", "Dear diary");
  testing::writeFile(testDirectory() / "empty.jpg", "");
  testing::writeFile(testDirectory() / "page.svg", "<svg width='8' height='8'/>");
  fs::create_directory(testDirectory() / "folder.jpg");
  ASSERT_EQ(mkfifo((testDirectory() / "pipe.jpg").c_str(), 0600), 0);
  ASSERT_TRUE(save(flat(1009, 10, kBlue), "narrow.png"));
  ASSERT_TRUE(save(quarters(64, 64), "bad.png"));
  auto content = testing::readFile(testDirectory() / "bad.png");
  content[content.find("IDAT") + 8] ^= 1;
  testing::writeFile(testDirectory() / "bad.png", content);
  for (const auto* name : {"giant.png", "long.png"}) {
    fs::copy(fs::path(ORVANE_TEST_IMAGES) / name, testDirectory() / name);
  }
  const std::map<std::string, const char*> sentences{
      {"text.jpg", " is not a JPEG, PNG, WebP, TIFF or HEIF image"},
      {"empty.jpg", " is not a JPEG, PNG, WebP, TIFF or HEIF image"},
      {"page.svg", " is not a JPEG, PNG, WebP, TIFF or HEIF image"},
      {"bad.png", " is damaged"},
      {"giant.png", " has more than 500 megapixels"},
      {"long.png", " has a side of more than 65,535 pixels"},
      {"narrow.png", " has one side more than 100 times as long as the other"},
      {"folder.jpg", ": Is a directory"},
      {"pipe.jpg", " is not a regular file"},
      {"missing.jpg", ": No such file or directory"}};
  for (const auto& [name, sentence] : sentences) {
    const auto image = readNamed(name, 9, 9, ImageFit::inside);
    ASSERT_FALSE(image) << name;
    EXPECT_EQ(image.error().description(), (testDirectory() / name).string() + sentence);
  }
}

TEST(ImageReader, APartOfAFileIsCutOff) {
  const auto picture = noise(640, 480, 4);
  for (const std::string name : kFormats) {
    SCOPED_TRACE(name);
    if (!save(picture, name)) continue;
    const auto file = testDirectory() / name.substr(0, name.find('['));
    const auto size = static_cast<double>(fs::file_size(file));
    for (const double share : {0.9, 0.5, 0.1}) {
      fs::resize_file(file, static_cast<std::uintmax_t>(size * share));
      expectProblem(name, ImageProblem::cutOff);
    }
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
          expectProblem("half.jpg", ImageProblem::cutOff);
          expectProblem("text.jpg", ImageProblem::notAnImage);
        } else {
          expectQuarters(readNamed(i % 2 == 0 ? "good.jpg" : "good.png", 64, 64, ImageFit::inside),
                         {kRed, kGreen, kBlue, kWhite});
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace orvane::platform
