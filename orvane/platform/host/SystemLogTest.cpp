#include <orvane/platform/host/SystemLog.h>

#include "support/Test.h"

namespace orvane {
namespace {

TEST(SystemLog, EachLineStaysOne) {
  std::vector<std::string> lines;
  SystemLog::setSink([&](std::string_view line) { lines.emplace_back(line); });
  SystemLog::write("[TagSync] 100%s done: perch\u00e9 no");
  SystemLog::write("a\nb\r\nc\0d\x1B[31m\te\x7F"sv);
  SystemLog::write("\u009B1m\u2028x\u2029\u00A0\u2030\xFF");
  SystemLog::setSink({});
  SystemLog::write("goes to the system's log");
  EXPECT_THAT(lines, ElementsAre("[TagSync] 100%s done: perch\u00e9 no", "a b  c d [31m e ",
                                 " 1m x \u00A0\u2030\uFFFD"));
}

TEST(SystemLog, ASinkMayThrowAndWriteAndReplaceItself) {
  std::vector<std::string> lines;
  SystemLog::setSink([&](std::string_view line) {
    lines.emplace_back(line);
    if (line != "first") return;
    SystemLog::write("second");
    SystemLog::setSink({});
    throw std::runtime_error("full");
  });
  SystemLog::write("first");
  SystemLog::write("third");
  EXPECT_THAT(lines, ElementsAre("first", "second"));
}

TEST(SystemLog, ThreadsMayWriteWhileTheSinkChanges) {
  std::atomic<int> count = 0;
  const auto countLine = [&](std::string_view) { ++count; };
  SystemLog::setSink(countLine);
  {
    const std::jthread writer([] {
      for (int n = 0; n < 2000; ++n) SystemLog::write("line");
    });
    for (int n = 0; n < 100; ++n) SystemLog::setSink(countLine);
  }
  EXPECT_EQ(count, 2000);
}

}  // namespace
}  // namespace orvane
