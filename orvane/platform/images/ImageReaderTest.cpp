#include <orvane/platform/images/ImageReader.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

fs::path sample(const std::string& name) { return testData("images") / name; }

/// "inside" and so on in the tables.
std::istream& operator>>(std::istream& stream, ImageFit& fit) {
  std::string word;
  stream >> word;
  fit = word == "inside"    ? ImageFit::inside
        : word == "stretch" ? ImageFit::stretch
                            : ImageFit::cover;
  return stream;
}

/// A row of `expected.txt`: a file, the box, and the image that it gives.
struct Expected {
  std::string file;
  int boxWidth, boxHeight;
  ImageFit fit;
  int width, height, tolerance;
  std::array<std::string, 4> corners;
};

std::istream& operator>>(std::istream& stream, Expected& row) {
  stream >> row.file >> row.boxWidth >> row.boxHeight >> row.fit;
  stream >> row.width >> row.height >> row.tolerance;
  for (auto& corner : row.corners) stream >> corner;
  return stream;
}

/// Compares a pixel with a colour in six hexadecimal digits.
void expectNear(const RgbImage& image, int x, int y, const std::string& colour, int tolerance) {
  const auto at = static_cast<std::size_t>((y * image.width + x) * 3);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(image.pixels.at(at + i), std::stoi(colour.substr(2 * i, 2), nullptr, 16), tolerance)
        << x << ',' << y;
  }
}

void expectImage(const Expected& row) {
  const auto image = readImage(sample(row.file), row.boxWidth, row.boxHeight, row.fit);
  ASSERT_TRUE(image) << image.error().description();
  EXPECT_EQ(image->width, row.width);
  EXPECT_EQ(image->height, row.height);
  ASSERT_EQ(image->pixels.size(), static_cast<std::size_t>(image->width * image->height * 3));
  const int right = image->width - 1;
  const int bottom = image->height - 1;
  expectNear(*image, 0, 0, row.corners[0], row.tolerance);
  expectNear(*image, right, 0, row.corners[1], row.tolerance);
  expectNear(*image, 0, bottom, row.corners[2], row.tolerance);
  expectNear(*image, right, bottom, row.corners[3], row.tolerance);
}

TEST(ImageReader, GivesUprightSrgbInTheBox) {
  std::ifstream table(sample("expected.txt"));
  int rows = 0;
  for (Expected row; table >> row; ++rows) {
    SCOPED_TRACE(row.file + " in " + std::to_string(row.boxWidth));
    expectImage(row);
  }
  EXPECT_EQ(rows, 92);
}

void expectError(const fs::path& file, const Error& expected) {
  const auto image = readImage(file, 9, 9, ImageFit::inside);
  ASSERT_FALSE(image) << file;
  EXPECT_EQ(image.error().domain(), expected.domain());
  EXPECT_EQ(image.error().code(), expected.code());
  EXPECT_EQ(image.error().description(), file.string() + expected.description());
}

TEST(ImageReader, NamesTheFileAndWhatIsWrongWithIt) {
  std::ifstream table(sample("refused.txt"));
  std::string file;
  std::string domain;
  std::string sentence;
  int rows = 0;
  for (int code = 0; table >> file >> domain >> code && std::getline(table.ignore(1), sentence);) {
    expectError(sample(file), {domain, code, sentence});
    ++rows;
  }
  EXPECT_EQ(rows, 9);
  const auto pipe = testDirectory() / "pipe.jpg";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  expectError(pipe, {Error::kPosix, EINVAL, " is not a regular file"});
  EXPECT_FALSE(readImage(sample("good.png"), 0, 9, ImageFit::inside));
  EXPECT_FALSE(readImage(sample("good.png"), 9, 2049, ImageFit::inside));
}

TEST(ImageReader, APartOfAFileIsCutOff) {
  int files = 0;
  for (const auto& entry : fs::directory_iterator(sample(""))) {
    if (!entry.path().filename().string().starts_with("noise-")) continue;
    const auto whole = readFile(entry.path());
    const auto part = testDirectory() / entry.path().filename();
    for (const std::size_t tenths : {9U, 5U, 1U}) {
      writeFile(part, whole.substr(0, whole.size() * tenths / 10));
      expectError(part, {kImageErrorDomain, 6, " is cut off"});
    }
    ++files;
  }
  EXPECT_EQ(files, 12);
}

/// How far two images of one size are apart, on average.
double distance(const RgbImage& a, const RgbImage& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) sum += std::abs(a.pixels[i] - b.pixels.at(i));
  return sum / static_cast<double>(a.pixels.size());
}

TEST(ImageReader, AReducedImageDoesNotDependOnItsWidth) {
  const auto read = [](const std::string& name) {
    return readImage(sample("width-" + name), 96, 96, ImageFit::inside).value();
  };
  const auto first = read("200.png");
  for (const auto* name : {"384.png", "384.tif", "200.jpg", "400.jpg", "800.jpg", "400.webp"}) {
    EXPECT_LT(distance(read(name), first), 1.5) << name;
  }
}

}  // namespace
}  // namespace orvane::platform
