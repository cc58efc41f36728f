#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/bookkeeping/UploadRecord.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace orvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();

UploadRecord plainRecord() { return {"A1", "media/a.heic", UploadStatus::pending, 0, 10}; }

/// An object of the five required members and `more`, which begins with a comma.
std::string withRequired(const std::string& more) {
  return R"({"id":"A","filename":"f","status":"failed","bytesUploaded":1,"totalBytes":2)" + more +
         "}";
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(UploadStatusTest, TextNamesExactlyOneCase) {
  const std::vector<std::pair<UploadStatus, std::string>> cases = {
      {UploadStatus::pending, "pending"},        {UploadStatus::uploading, "uploading"},
      {UploadStatus::completed, "completed"},    {UploadStatus::failed, "failed"},
      {UploadStatus::retrying, "retrying"},      {UploadStatus::excluded, "excluded"},
      {UploadStatus::remoteAlias, "remoteAlias"}};
  for (const auto& [status, text] : cases) {
    EXPECT_EQ(uploadStatusText(status), text);
    EXPECT_EQ(uploadStatusFromText(text), status);
  }
  for (const auto* text : {"", "Pending", "remotealias", "pending ", "done"}) {
    EXPECT_EQ(uploadStatusFromText(text), std::nullopt) << text;
  }
}

TEST(UploadRecordTest, ProgressIsAFractionNotLimited) {
  struct Case {
    UploadStatus status;
    std::int64_t uploaded, total;
    double progress;
  };
  for (const auto& c : {Case{UploadStatus::completed, 0, 0, 1},
                        {UploadStatus::completed, 5, -1, 1},
                        {UploadStatus::failed, 0, 0, 0},
                        {UploadStatus::uploading, 9, -3, 0},
                        {UploadStatus::failed, 50, 200, .25},
                        {UploadStatus::completed, 50, 200, .25},
                        {UploadStatus::uploading, 30, 20, 1.5},
                        {UploadStatus::pending, -1, 4, -.25}}) {
    const UploadRecord record("A", "f", c.status, c.uploaded, c.total);
    EXPECT_EQ(record.progress(), c.progress) << c.uploaded << " of " << c.total;
  }
}

TEST(UploadRecordTest, ThumbnailIsNamedAfterTheFile) {
  for (const auto& [filename, thumbnail] : std::vector<std::pair<std::string, std::string>>{
           {"media/IMG_0042.HEIC", "thumbnails/IMG_0042.jpg"},
           {"media/Clip.MOV", "thumbnails/Clip_VIDEO.jpg"},
           {"holiday.mp4", "thumbnails/holiday_VIDEO.jpg"},
           {"clip.Mp4", "thumbnails/clip_VIDEO.jpg"},
           {"Trailer.M4V", "thumbnails/Trailer_VIDEO.jpg"},
           {"a.mov.mp4", "thumbnails/a.mov_VIDEO.jpg"},
           {".mov", "thumbnails/_VIDEO.jpg"},
           {"mov", "thumbnails/mov"},
           {"archive.tar.gz", "thumbnails/archive.tar.jpg"},
           {"README", "thumbnails/README"},
           {".hidden", "thumbnails/.jpg"},
           {"name.", "thumbnails/name.jpg"},
           {"2024.05/IMG", "thumbnails/2024.jpg"},
           {"MEDIA/x.jpg", "thumbnails/MEDIA/x.jpg"},
           {"photos/media/a.png", "thumbnails/photos/media/a.jpg"},
           {"media/media/a.png", "thumbnails/media/a.jpg"},
           {"media/", "thumbnails/"},
           {"", "thumbnails/"}}) {
    const UploadRecord record("A", filename, UploadStatus::pending, 0, 0);
    EXPECT_EQ(record.thumbnailFilename(), thumbnail) << filename;
  }
}

TEST(UploadRecordTest, WritesWhatIsSet) {
  auto record = plainRecord();
  EXPECT_EQ(
      record.encodeJson(),
      R"({"id":"A1","filename":"media/a.heic","status":"pending","bytesUploaded":0,)"
      R"("totalBytes":10,"thumbnailUploaded":false,"retryCount":0,"tags":[],"tagsVersion":0})");
  const UploadRecord full("\"\\\n\x01/", "é\U0001F30A", UploadStatus::remoteAlias, kLeast, kMost,
                          "", Date{752'000'000.5}, true, -2, "\"e\"", {"mare", ""}, 7);
  EXPECT_EQ(full.encodeJson(),
            R"({"id":"\"\\\n\u0001/","filename":"é🌊","status":"remoteAlias",)"
            R"("bytesUploaded":-9223372036854775808,"totalBytes":9223372036854775807,)"
            R"("errorMessage":"","creationDate":752000000.5,"thumbnailUploaded":true,)"
            R"("retryCount":-2,"eTag":"\"e\"","tags":["mare",""],"tagsVersion":7})");
}

TEST(UploadRecordTest, EscapesEveryControlCharacterWhereverItStands) {
  for (char c = 0; c < ' '; ++c) {
    for (std::size_t position = 0; position < 48; ++position) {
      auto record = plainRecord();
      record.errorMessage = std::string(48, 'x');
      record.errorMessage->at(position) = c;
      const auto json = record.encodeJson().value();
      EXPECT_TRUE(std::ranges::all_of(json, [](char written) { return written >= ' '; })) << int{c};
      EXPECT_EQ(UploadRecord::decodeJson(json).value().errorMessage, record.errorMessage);
    }
  }
}

TEST(UploadRecordTest, WritesDatesShortest) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const auto& [seconds, text] :
       std::vector<std::pair<double, std::string>>{{0, "0"},
                                                   {-0.0, "-0"},
                                                   {-978'307'200, "-978307200"},
                                                   {0.1, "0.1"},
                                                   {1e15, "1000000000000000"},
                                                   {0x1.fffffffffffffp62, "9223372036854774784"},
                                                   {0x1p63, "9223372036854775808"},
                                                   {1e300, "1e+300"},
                                                   {5e-324, "5e-324"}}) {
    auto record = plainRecord();
    record.creationDate = Date{seconds};
    const auto json = record.encodeJson().value();
    EXPECT_THAT(json, ::testing::HasSubstr("\"creationDate\":" + text + ",")) << seconds;
    EXPECT_EQ(UploadRecord::decodeJson(json).value().creationDate, record.creationDate);
  }
  for (const double seconds : {infinity, -infinity, infinity - infinity}) {
    auto record = plainRecord();
    record.creationDate = Date{seconds};
    EXPECT_EQ(record.encodeJson(), std::nullopt) << seconds;
  }
}

TEST(UploadRecordTest, RefusesToWriteWhatIsNotText) {
  for (const std::string bad : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\xaf", "\xf5\x80\x80\x80"}) {
    const UploadRecord named(bad, bad, UploadStatus::pending, 0, 0);
    EXPECT_EQ(named.encodeJson(), std::nullopt);
    auto record = plainRecord();
    record.tags = {"mare", bad, "sole"};
    EXPECT_EQ(record.encodeJson(), std::nullopt);
    record = plainRecord();
    record.eTag = bad;
    EXPECT_EQ(record.encodeJson(), std::nullopt);
  }
  auto record = plainRecord();
  record.status = static_cast<UploadStatus>(7);
  EXPECT_EQ(record.encodeJson(), std::nullopt);
}

TEST(UploadRecordTest, AbsentAndNullMembersTakeDefaults) {
  for (const std::string more :
       {"",
        R"(,"errorMessage":null,"creationDate":null,"thumbnailUploaded":null,"retryCount":null,)"
        R"("eTag":null,"tags":null,"tagsVersion":null)",
        R"(,"eTag":"x","eTag":null,"tags":["a"],"tags":null,"retryCount":4,"retryCount":null)"}) {
    const auto record = UploadRecord::decodeJson(withRequired(more));
    ASSERT_TRUE(record) << more;
    EXPECT_EQ(record->id(), "A");
    EXPECT_EQ(record->filename(), "f");
    EXPECT_EQ(record->status, UploadStatus::failed);
    EXPECT_EQ(record->bytesUploaded, 1);
    EXPECT_EQ(record->totalBytes, 2);
    EXPECT_EQ(record->errorMessage, std::nullopt);
    EXPECT_EQ(record->creationDate, std::nullopt);
    EXPECT_FALSE(record->thumbnailUploaded);
    EXPECT_EQ(record->retryCount, 0);
    EXPECT_EQ(record->eTag, std::nullopt);
    EXPECT_THAT(record->tags, IsEmpty());
    EXPECT_EQ(record->tagsVersion, 0);
  }
}

TEST(UploadRecordTest, ReadsDatesWithMoreDigitsThanADoubleHolds) {
  const std::pair<std::string, double> cases[] = {
      {"0.12345678901234567890123", 0.12345678901234567890123},
      {"0.99999999999999999999", 1.0},
      {"-0.50000000000000000000001", -0.5},
      {"752000000.500000000000000000000001", 752000000.5},
      {"1.00000000000000000000e-400", 0.0},
  };
  for (const auto& [text, seconds] : cases) {
    const auto record = UploadRecord::decodeJson(withRequired(",\"creationDate\":" + text));
    ASSERT_TRUE(record) << text;
    EXPECT_EQ(record->creationDate, Date{seconds}) << text;
  }
}

TEST(UploadRecordTest, ReadsMembersInAnyOrderAndForm) {
  const auto record = UploadRecord::decodeJson(
      " {\t\"tagsVersion\" : 3.0 ,\r\n \"tags\":[ \"a\\u00e8\\ud83c\\udf0a\" , \"\\/\\b\" ],"
      R"("eTag":"","retryCount":1e3,"thumbnailUploaded":true,"creationDate":1e-1,"future":{"x":[1]},)"
      R"("errorMessage":"no","totalBytes":9223372036854775807.0,"bytesUploaded":-0,)"
      R"("status":"failed","status":"completed","fil\u0065name":"f","id":"A"} )");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->tagsVersion, 3);
  EXPECT_THAT(record->tags, ElementsAre("aè🌊", "/\b"));
  EXPECT_EQ(record->eTag, "");
  EXPECT_EQ(record->retryCount, 1000);
  EXPECT_TRUE(record->thumbnailUploaded);
  EXPECT_EQ(record->creationDate, Date{0.1});
  EXPECT_EQ(record->errorMessage, "no");
  EXPECT_EQ(record->totalBytes, kMost);
  EXPECT_EQ(record->bytesUploaded, 0);
  EXPECT_EQ(record->status, UploadStatus::completed);
  EXPECT_EQ(record->filename(), "f");
  EXPECT_EQ(record->id(), "A");
}

TEST(UploadRecordTest, ReadsWholeNumbersOf64Bits) {
  for (const auto& [text, number] :
       std::vector<std::pair<std::string, std::int64_t>>{{"0", 0},
                                                         {"-0.0e5", 0},
                                                         {"0e999999999999", 0},
                                                         {"12.50e1", 125},
                                                         {"1200e-2", 12},
                                                         {"-3.0", -3},
                                                         {"1E+2", 100},
                                                         {"9223372036854775807", kMost},
                                                         {"-9223372036854775808", kLeast},
                                                         {"-9.223372036854775808e18", kLeast},
                                                         {"922337203685477580700e-2", kMost}}) {
    const auto record = UploadRecord::decodeJson(withRequired(",\"retryCount\":" + text));
    ASSERT_TRUE(record) << text;
    EXPECT_EQ(record->retryCount, number) << text;
  }
  for (const std::string text : {"1.5", "1e-1", "9223372036854775808", "-9223372036854775809",
                                 "9223372036854775807.5", "1e19", "1e99999999999", "1e-99999999999",
                                 "01", "-", "+1", "1.", ".5", "1e", "0x1", "1 2", "NaN"}) {
    EXPECT_FALSE(UploadRecord::decodeJson(withRequired(",\"retryCount\":" + text))) << text;
  }
}

TEST(UploadRecordTest, IgnoresOtherMembersThatAreValid) {
  const auto accepts = [](const std::string& value) {
    return UploadRecord::decodeJson(withRequired(",\"x\":" + value)).has_value();
  };
  for (const std::string value : {"null", "true", "-1.5e+400", R"("\ud83c\udf0a")", "[]", "{}",
                                  R"([1,{"a":[null,false,""],"a":0}])"}) {
    EXPECT_TRUE(accepts(value)) << value;
  }
  for (const auto& value : linesOf(R"(nul
nulll
tru
fals
True
01
1.e1
--1
1-
'a'
"\x"
"\u12g4"
"\ud83c"
"\udf0a"
"\ud83c\u0041"
"a"b
"a""b"
1"a"
[1,]
[,1]
[1 2]
[1
{"a"}
{"a":}
{"a":1,}
{a:1}
{1:1}
{"\q":1}
{"\udf0a":1}
[}
{])")) {
    EXPECT_FALSE(accepts(value)) << value;
  }
  for (const std::string value : {"\"\t\"", "\"\xff\"", "", "1\f", "\v1"}) {
    EXPECT_FALSE(accepts(value)) << value;
  }
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(accepts(nested(500)));
  EXPECT_FALSE(accepts(nested(100'000)));
}

TEST(UploadRecordTest, RefusesWhatIsNotARecord) {
  const std::string valid = withRequired("");
  ASSERT_TRUE(UploadRecord::decodeJson(valid));
  for (const std::string& text :
       {std::string(), std::string(" "), std::string("null"), std::string("[]"), "[" + valid + "]",
        valid + ",", valid + "}", valid + valid, valid + " x", valid + std::string(1, '\0'),
        "\xEF\xBB\xBF" + valid, "," + valid, valid.substr(0, valid.size() - 1)}) {
    EXPECT_FALSE(UploadRecord::decodeJson(text)) << text;
  }
  for (const std::string member : {R"("id":"A")", R"("filename":"f")", R"("status":"failed")",
                                   R"("bytesUploaded":1)", R"("totalBytes":2)"}) {
    const auto name = member.substr(0, member.find(':'));
    for (const std::string& other : {name + ":null", name + ":[]", std::string("\"x\":1")}) {
      auto text = valid;
      text.replace(text.find(member), member.size(), other);
      EXPECT_FALSE(UploadRecord::decodeJson(text)) << text;
    }
  }
}

TEST(UploadRecordTest, RefusesMembersOfTheWrongType) {
  for (const auto& member : linesOf(R"("status":"Failed"
"status":"done"
"status":3
"id":1
"filename":true
"bytesUploaded":"1"
"totalBytes":true
"errorMessage":1
"creationDate":"0"
"creationDate":1e999
"creationDate":01
"thumbnailUploaded":"true"
"thumbnailUploaded":0
"retryCount":"0"
"eTag":[]
"tags":"a"
"tags":{}
"tags":[1]
"tags":[null]
"tags":["a" "b"]
"tagsVersion":false
"eTag":"\udf0a"
"eTag":"\q"
"tags":["\ud83c"])")) {
    EXPECT_FALSE(UploadRecord::decodeJson(withRequired("," + member))) << member;
  }
}

}  // namespace
}  // namespace orvane
