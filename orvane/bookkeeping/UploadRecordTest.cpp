#include <orvane/bookkeeping/UploadRecord.h>

#include "support/Test.h"

#include <iterator>

namespace orvane {
namespace {

const std::string kRequired =
    R"("id":"A","filename":"f","status":"failed","bytesUploaded":1,"totalBytes":2)";

UploadRecord plainRecord() { return {"A", "f", UploadStatus::failed, 1, 2}; }

/// What is written again of the required members and `more`; "refused" when they are not read.
std::string rewritten(const std::string& more) {
  const auto record = UploadRecord::decodeJson("{" + kRequired + "," + more + "}");
  return record ? record->encodeJson().value() : "refused";
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(UploadStatusTest, TextNamesExactlyOneCase) {
  const auto texts = wordsOf("pending uploading completed failed retrying excluded remoteAlias");
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(uploadStatusText(static_cast<UploadStatus>(i)), texts[i]);
    EXPECT_EQ(uploadStatusFromText(texts[i]), static_cast<UploadStatus>(i));
  }
  EXPECT_EQ(uploadStatusText(UploadStatus::failed), "failed");
  for (const auto* text : {"", "Pending", "remotealias", "pending ", "done"}) {
    EXPECT_EQ(uploadStatusFromText(text), std::nullopt) << text;
  }
}

TEST(UploadRecordTest, ProgressIsAFractionNotLimited) {
  const auto progress = [](UploadStatus status, std::int64_t uploaded, std::int64_t total) {
    return UploadRecord("A", "f", status, uploaded, total).progress();
  };
  EXPECT_EQ(progress(UploadStatus::completed, 0, 0), 1);
  EXPECT_EQ(progress(UploadStatus::completed, 5, -1), 1);
  EXPECT_EQ(progress(UploadStatus::failed, 9, 0), 0);
  EXPECT_EQ(progress(UploadStatus::completed, 50, 200), .25);
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

TEST(UploadRecordTest, WritesWhatIsSet) {
  EXPECT_EQ(
      plainRecord().encodeJson(),
      "{" + kRequired + R"(,"thumbnailUploaded":false,"retryCount":0,"tags":[],"tagsVersion":0})");
  const UploadRecord full("\"\\\n\x01/", "é\U0001F30A", UploadStatus::remoteAlias, INT64_MIN,
                          INT64_MAX, "", Date{752'000'000.5}, true, -2, "\"e\"", {"mare", ""}, 7);
  EXPECT_EQ(full.encodeJson(),
            R"({"id":"\"\\\n\u0001/","filename":"é🌊","status":"remoteAlias",)"
            R"("bytesUploaded":-9223372036854775808,"totalBytes":9223372036854775807,)"
            R"("errorMessage":"","creationDate":752000000.5,"thumbnailUploaded":true,)"
            R"("retryCount":-2,"eTag":"\"e\"","tags":["mare",""],"tagsVersion":7})");
}

TEST(UploadRecordTest, WritesWhatJsonCannotExpressAsReplacements) {
  const auto replacements = [](std::size_t count) {
    std::string text;
    while (count-- > 0) text += "\uFFFD";
    return text;
  };
  for (const auto& [bad, written] :
       {std::pair("\xff", replacements(1)),
        {"caf\xe9", "caf" + replacements(1)},
        {"123456789\xc3z\u00e8", "123456789" + replacements(1) + "z\u00e8"},
        {"\xed\xa0\x80", replacements(3)},
        {"\xf5\x80\x80\x80", replacements(4)}}) {
    auto record = UploadRecord(bad, bad, UploadStatus::failed, 0, 0, {}, {}, false, 0, bad, {bad});
    const auto json = record.encodeJson().value();
    const auto read = UploadRecord::decodeJson(json).value();
    EXPECT_EQ(read.eTag, written);
    EXPECT_EQ(read.tags, std::vector{written});
    EXPECT_EQ(read.encodeJson(), json);
    EXPECT_EQ(record.eTag, bad);
  }
  for (const double endless : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    auto record = plainRecord();
    record.creationDate = Date{endless};
    EXPECT_EQ(record.encodeJson(), std::nullopt);
  }
  EXPECT_EQ(UploadRecord("A", "f", static_cast<UploadStatus>(7), 0, 0).encodeJson(), std::nullopt);
}

TEST(UploadRecordTest, ReadsMembersInAnyOrderAndForm) {
  const auto record = UploadRecord::decodeJson(
      " {\t\"tagsVersion\" : 3.0 ,\r\n \"tags\":[ \"a\\u00e8\\ud83c\\udf0a\" , \"\\/\\b\" ],"
      R"("eTag":"","retryCount":1e3,"thumbnailUploaded":true,"creationDate":1e-1,)"
      R"("errorMessage":"no","totalBytes":9223372036854775807.0,"bytesUploaded":-0,)"
      R"("status":"failed","status":"completed","fil\u0065name":"f","id":"A"} )");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->encodeJson(),
            R"({"id":"A","filename":"f","status":"completed","bytesUploaded":0,)"
            R"("totalBytes":9223372036854775807,"errorMessage":"no","creationDate":0.1,)"
            R"("thumbnailUploaded":true,"retryCount":1000,"eTag":"","tags":["aè🌊","/\b"],)"
            R"("tagsVersion":3})");
}

TEST(UploadRecordTest, NumbersKeepTheirValue) {
  std::istringstream dates(R"(
      -0.0 -0   -978307200 -978307200   1e300 1e+300   5e-324 5e-324
      9223372036854774784 9223372036854774784   9223372036854775808 9223372036854775808
      0.12345678901234567890123 0.12345678901234568   752000000.500000000000000000000001 752000000.5
      0.99999999999999999999 1   1.00000000000000000000e-400 0)");
  for (std::string text, written; dates >> text >> written;) {
    const auto json = rewritten(R"("creationDate":)" + text);
    EXPECT_NE(json.find(R"("creationDate":)" + written + ","), std::string::npos) << text << json;
  }
  std::istringstream integers(R"(
      -0.0e5 0   0e999999999999 0   12.50e1 125   1200e-2 12   -3.0 -3   1E+2 100
      -9.223372036854775808e18 -9223372036854775808   922337203685477580700e-2 9223372036854775807)");
  for (std::string text, written; integers >> text >> written;) {
    const auto json = rewritten(R"("tagsVersion":)" + text);
    EXPECT_TRUE(json.ends_with(R"("tagsVersion":)" + written + "}")) << text << json;
  }
}

TEST(UploadRecordTest, AbsentNullAndUnknownMembersChangeNothing) {
  for (const std::string& more :
       {std::string(R"("errorMessage":null,"creationDate":null,"thumbnailUploaded":null,)"
                    R"("retryCount":null,"eTag":null,"tags":null,"tagsVersion":null)"),
        std::string(R"("eTag":"x","eTag":null,"tags":["a"],"tags":null)"),
        std::string(R"("x":true,"y":-1.5e+400,"z":"\ud83c\udf0a")"),
        std::string(R"("x":[1,{"a":[null,false,""],"a":0}])"), "\"x\":" + nested(500)}) {
    EXPECT_EQ(rewritten(more), plainRecord().encodeJson()) << more;
  }
}

TEST(UploadRecordTest, RefusesWhatIsNotARecord) {
  const std::string valid = "{" + kRequired + "}";
  const std::string mark = "\xEF\xBB\xBF";
  ASSERT_TRUE(UploadRecord::decodeJson(valid));
  EXPECT_TRUE(UploadRecord::decodeJson(mark + valid));
  for (const std::string& text :
       {std::string(), std::string("null"), std::string("[]"), "[" + valid + "]", valid + ",",
        valid + valid, valid + std::string(1, '\0'), mark + mark + valid, mark, "," + valid,
        valid.substr(0, valid.size() - 1)}) {
    EXPECT_FALSE(UploadRecord::decodeJson(text)) << text;
  }
  for (const auto& name : wordsOf(R"("id" "filename" "status" "bytesUploaded" "totalBytes")")) {
    auto without = valid;
    without.replace(without.find(name), name.size(), "\"x\"");
    EXPECT_FALSE(UploadRecord::decodeJson(without)) << without;
    EXPECT_EQ(rewritten(name + ":null"), "refused");
  }
}

TEST(UploadRecordTest, RefusesMembersThatAreWrong) {
  std::istringstream members(readFile(ORVANE_REFUSED_MEMBERS));
  int count = 0;
  for (std::string member; std::getline(members, member); ++count) {
    EXPECT_EQ(rewritten(member), "refused") << member;
  }
  EXPECT_GT(count, 60);
  EXPECT_EQ(rewritten("\"x\":" + nested(100'000)), "refused");
}

}  // namespace
}  // namespace orvane
