#include <gtest/gtest.h>
#include <orvane/platform/internal/ImageReader.h>
#include <orvane/platform/internal/VipsHandle.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <boost/endian/conversion.hpp>
#include <cstdio>
#include <filesystem>
#include <string>

#include "support/ChildProcess.h"
#include "support/MemoryGrowth.h"
#include "support/TemporaryDirectory.h"

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;

/// Prints the code of the error (0 for none) and by how many KiB memory has grown.
const testing::ChildMain kReadAndMeasure("readAndMeasure", [](const auto& arguments) {
  const testing::MemoryGrowth growth;
  const auto image = readImage(arguments.at(0), 256, 256, ImageFit::inside);
  std::printf("%d %ld\n", image ? 0 : static_cast<int>(image.error().code()), growth.kibibytes());
  return 0;
});

/// `options` are libvips' for the writer.
bool saveBlack(const fs::path& file, int side, const std::string& options) {
  vips_init("test");
  VipsImage* black = nullptr;
  vips_black(&black, side, side, "bands", 3, nullptr);
  const VipsHandle<VipsImage> image(black);
  return vips_image_write_to_file(image.get(), (file.string() + options).c_str(), nullptr) == 0;
}

/// Makes a small image claim 30,000 by 30,000 pixels.
void inflate(const fs::path& file) {
  auto content = testing::readFile(file);
  if (file.extension() == ".png") {
    content.replace(16, 8, std::string("\0\0\x75\x30\0\0\x75\x30", 8));
    boost::crc_32_type checksum;
    checksum.process_bytes(&content.at(12), 17);
    boost::endian::store_big_u32(reinterpret_cast<unsigned char*>(&content.at(29)),
                                 checksum.checksum());
  } else {
    const auto frame = std::min(content.find("\xFF\xC0"), content.find("\xFF\xC2"));
    content.replace(frame + 5, 4, "\x75\x30\x75\x30");
  }
  testing::writeFile(file, content);
}

TEST(ImageReader, MemoryIsBounded) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP() << "sanitizers keep memory of their own";
  const struct {
    const char* name;
    const char* options;
    int side;
    bool inflated;
    int code;
  } cases[] = {{"bomb.jpg", "", 64, true, 3},
               {"bomb.jpg", "[interlace]", 64, true, 3},
               {"bomb.png", "", 64, true, 3},
               {"bomb.png", "[interlace]", 64, true, 3},
               {"bomb.webp", "[lossless,effort=0]", 16383, false, 3},
               {"bomb.tif", "[tile,compression=deflate]", 14000, false, 3},
               {"large.jpg", "", 14200, false, 0},
               {"large.png", "[compression=1]", 14200, false, 0}};  // 200 megapixels
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + c.options);
    const auto file = testing::testDirectory() / c.name;
    ASSERT_TRUE(saveBlack(file, c.side, c.options));
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

}  // namespace
}  // namespace orvane::platform
