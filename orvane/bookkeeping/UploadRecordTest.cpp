#include <orvane/bookkeeping/UploadRecord.h>

#include "support/Test.h"

namespace orvane {
namespace {

std::ifstream jsonFile(const std::string& name) {
  return std::ifstream(fs::path(ORVANE_JSON_FILES) / name);
}

TEST(UploadStatusTest, TextNamesExactlyOneCase) {
  std::istringstream texts("pending uploading completed failed retrying excluded remoteAlias");
  std::string text;
  for (int i = 0; texts >> text; ++i) {
    EXPECT_EQ(uploadStatusText(static_cast<UploadStatus>(i)), text);
    EXPECT_EQ(uploadStatusFromText(text), static_cast<UploadStatus>(i));
  }
  for (const auto* other : {"", "Pending", "remotealias", "pending ", "done"}) {
    EXPECT_EQ(uploadStatusFromText(other), std::nullopt) << other;
  }
}

TEST(UploadRecordTest, ProgressIsAFractionNotLimited) {
  const auto progress = [](UploadStatus status, std::int64_t uploaded, std::int64_t total) {
    return UploadRecord("A", "f", status, uploaded, total).progress();
  };
  EXPECT_EQ(progress(UploadStatus::completed, 0, 0), 1);
  EXPECT_EQ(progress(UploadStatus::completed, 5, -1), 1);
  EXPECT_EQ(progress(UploadStatus::failed, 9, 0), 0);
  EXPECT_EQ(progress(UploadStatus::uploading, 30, 20), 1.5);
  EXPECT_EQ(progress(UploadStatus::pending, -1, 4), -.25);
}

TEST(UploadRecordTest, ThumbnailIsNamedAfterTheFile) {
  std::istringstream cases(R"(media/IMG_0042.HEIC IMG_0042.jpg   media/Clip.MOV     Clip_VIDEO.jpg
                              clip.Mp4            clip_VIDEO.jpg a.mov.m4V          a.mov_VIDEO.jpg
                              archive.tar.gz      archive.tar.jpg README            README
                              .hidden             .jpg           .mov               _VIDEO.jpg
                              mov                 mov            2024.05/IMG        2024.jpg
                              MEDIA/x.jpg         MEDIA/x.jpg    media/media/a.png  media/a.jpg
                              photos/media/a.png  photos/media/a.jpg)");
  for (std::string filename, thumbnail; cases >> filename >> thumbnail;) {
    const UploadRecord record("A", filename, UploadStatus::pending, 0, 0);
    EXPECT_EQ(record.thumbnailFilename(), "thumbnails/" + thumbnail) << filename;
  }
}

/// Each second line is what the record of the line before it is written as.
TEST(UploadRecordTest, IsWrittenAsItWasRead) {
  auto lines = jsonFile("read-records.txt");
  int count = 0;
  for (std::string read, written; std::getline(lines, read) && std::getline(lines, written);) {
    const auto record = UploadRecord::decodeJson(read);
    EXPECT_EQ(record ? record->encodeJson() : "refused", written) << read;
    ++count;
  }
  EXPECT_GT(count, 20);
}

TEST(UploadRecordTest, WhatIsNoRecordIsRefused) {
  auto lines = jsonFile("refused-records.txt");
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_FALSE(UploadRecord::decodeJson(line)) << line;
  }
  EXPECT_GT(count, 80);
  const auto deep = std::string(100'000, '[') + std::string(100'000, ']');
  EXPECT_FALSE(UploadRecord::decodeJson(
      R"({"id":"","filename":"","status":"failed","bytesUploaded":1,"totalBytes":2,"x":)" + deep +
      "}"));
}

TEST(UploadRecordTest, WritesWhatJsonCannotExpressAsReplacements) {
  const std::pair<std::string, std::string> texts[] = {
      {"123456789\xc3z\u00e8", "123456789\uFFFDz\u00e8"},
      {"\xed\xa0\x80", "\uFFFD\uFFFD\uFFFD"},
      {"\xf5\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"}};
  for (const auto& [bad, written] : texts) {
    UploadRecord record(bad, bad, UploadStatus::failed, 0, 0, {}, {}, false, 0, bad, {bad});
    const auto read = UploadRecord::decodeJson(record.encodeJson().value()).value();
    EXPECT_EQ(read.id(), written);
    EXPECT_EQ(read.eTag, written);
    EXPECT_EQ(read.tags, std::vector{written});
    for (const double endless : {HUGE_VAL, std::nan("")}) {
      record.creationDate = Date{endless};
      EXPECT_EQ(record.encodeJson(), std::nullopt);
    }
  }
  EXPECT_EQ(UploadRecord("A", "f", static_cast<UploadStatus>(7), 0, 0).encodeJson(), std::nullopt);
}

}  // namespace
}  // namespace orvane
