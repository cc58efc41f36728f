#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/images/ImageReader.h>

#include "support/ChildProcess.h"
#include "support/MemoryGrowth.h"
#include "support/TemporaryDirectory.h"
#include "support/TestImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using testing::testDirectory;

std::string sample(const char* name) {
  return testing::readFile(fs::path(ORVANE_TEST_IMAGES) / name);
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

/// 20,000 scans through 64 megapixels: minutes of work.
fs::path slowImage() {
  const auto content = sample("scans.jpg");
  const auto scan = content.rfind("\xFF\xDA");
  const auto length = content.size() - 2 - scan;
  const auto file = testDirectory() / "scans.jpg";
  testing::writeFile(file,
                     content.substr(0, scan) + repeated(content.substr(scan, length), 20'000));
  return file;
}

fs::path goodImage() {
  const auto file = testDirectory() / "good.png";
  testing::writeImage(file, 80, 60, {10, 120, 200});
  return file;
}

auto read(const fs::path& file, std::chrono::milliseconds limit = kImageTimeLimit) {
  return readImage(file, 64, 64, ImageFit::inside, limit);
}

/// The worker of the calling thread, once it runs.
pid_t workerOf(pid_t process, pid_t thread) {
  const auto task = "/proc/" + std::to_string(process) + "/task/" + std::to_string(thread);
  for (pid_t worker = 0;;) {
    if (std::ifstream(task + "/children") >> worker) return worker;
    std::this_thread::yield();
  }
}

/// Prints the code of the error (0 for none) and by how many KiB memory has grown.
const testing::ChildMain kReadAndMeasure("readAndMeasure", [](const auto& arguments) {
  const testing::MemoryGrowth growth;
  const auto image = read(arguments.at(0), std::chrono::seconds(std::stoi(arguments.at(1))));
  std::printf("%d %ld\n", image ? 0 : static_cast<int>(image.error().code()), growth.kibibytes());
  return 0;
});

void writeHostileImages() {
  for (const auto* name : {"lying.avif", "lying.heic", "xmp.tif"}) {
    testing::writeFile(testDirectory() / name, sample(name));
  }
  fs::resize_file(testDirectory() / "xmp.tif", 1'500'000'464);
  const auto texts = sample("texts.png");
  const auto start = texts.find("zTXt") - 4;
  const auto length = texts.find("IDAT") - 4 - start;
  testing::writeFile(testDirectory() / "texts.png", texts.substr(0, start) +
                                                        repeated(texts.substr(start, length), 150) +
                                                        texts.substr(start + length));
  testing::writeImage(testDirectory() / "notes.jpg", 64, 48, {10, 120, 200});
  auto notes = testing::readFile(testDirectory() / "notes.jpg");
  notes.insert(2, repeated("\xFF\xE1\xFF\xFF" + std::string(65'533, ' '), 9'000));
  testing::writeFile(testDirectory() / "notes.jpg", notes);
}

TEST(ImageWorker, NoImageCostsTheHostMemoryOrTime) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP() << "sanitizers keep memory of their own";
  writeHostileImages();
  slowImage();
  constexpr int kSeconds = 4;
  for (const auto* name :
       {"lying.avif", "lying.heic", "texts.png", "notes.jpg", "xmp.tif", "scans.jpg"}) {
    SCOPED_TRACE(name);
    const auto start = std::chrono::steady_clock::now();
    const auto output = testing::outputOfChild(
        "readAndMeasure", {(testDirectory() / name).string(), std::to_string(kSeconds)});
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s * kSeconds);
    int code = -1;
    long growth = 0;
    ASSERT_EQ(std::sscanf(output.c_str(), "%d %ld", &code, &growth), 2);
    EXPECT_NE(code, static_cast<int>(ImageProblem::crashed));
    EXPECT_LE(growth, 64 * 1024);
  }
}

TEST(ImageWorker, OneThatOverrunsOrDiesIsReplaced) {
  const auto slow = slowImage();
  const auto good = goodImage();
  const auto codeOf = [](const Result<RgbImage>& image) {
    return image ? ImageProblem::none : static_cast<ImageProblem>(image.error().code());
  };
  EXPECT_EQ(codeOf(read(slow, 200ms)), ImageProblem::tooSlow);
  EXPECT_EQ(codeOf(read(good)), ImageProblem::none);
  EXPECT_EQ(codeOf(read(fs::path(ORVANE_TEST_IMAGES) / "bomb.webp")), ImageProblem::tooMuchMemory);
  EXPECT_EQ(codeOf(read(good)), ImageProblem::none);

  const pid_t thread = gettid();
  const pid_t idle = workerOf(getpid(), thread);
  siginfo_t end{};
  kill(idle, SIGKILL);
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(idle), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(codeOf(read(good)), ImageProblem::none);
  const pid_t worker = workerOf(getpid(), thread);
  std::jthread killer([&] {
    // It has the image when it has opened more than its socket and its two outputs.
    const auto opened = "/proc/" + std::to_string(worker) + "/fd/3";
    while (!fs::exists(fs::symlink_status(opened))) std::this_thread::yield();
    kill(worker, SIGSEGV);
  });
  const auto image = read(slow);
  EXPECT_EQ(codeOf(image), ImageProblem::crashed);
  EXPECT_EQ(image.error().description(), slow.string() + " makes its decoder crash");
  EXPECT_EQ(codeOf(read(good)), ImageProblem::none);
}

TEST(ImageWorker, HoldsNothingThatItDoesNotNeed) {
  sigset_t blocked;
  sigfillset(&blocked);
  pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
  const std::ofstream inherited(testDirectory() / "secret");
  ASSERT_TRUE(read(goodImage()));
  const auto process = "/proc/" + std::to_string(workerOf(getpid(), gettid()));
  const auto status = testing::readFile(process + "/status");
  for (const auto* line : {"NoNewPrivs:\t1", "Seccomp:\t2", "SigBlk:\t0000000000000000"}) {
    EXPECT_THAT(status, HasSubstr(line));
  }
  const auto limits = testing::readFile(process + "/limits");
  for (const auto* line : {"Max data size             805306368            805306368",
                           "Max file size             0                    0",
                           "Max core file size        0                    0",
                           "Max open files            16                   16"}) {
    EXPECT_THAT(limits, HasSubstr(line));
  }
  EXPECT_EQ(testing::readFile(process + "/environ"), "");
  EXPECT_EQ(std::distance(fs::directory_iterator(process + "/fd"), {}), 3);
}

TEST(ImageWorker, OneThatCannotBeStartedIsNamed) {
  const auto good = goodImage();
  setHelperFolder("/nowhere");
  EXPECT_EQ(read(good).error().description(),
            good.string() + ": /nowhere/orvane-image-worker: No such file or directory");
  setHelperFolder(testing::testDirectory());
  fs::create_symlink("/bin/false", testing::testDirectory() / "orvane-image-worker");
  EXPECT_EQ(read(good).error().code(), static_cast<int>(ImageProblem::crashed));
}

/// Ends while another thread decodes; prints the worker's number.
const testing::ChildMain kExitWhileReading("exitWhileReading", [](const auto& arguments) {
  static std::atomic<pid_t> thread = 0;
  std::thread([file = arguments.at(0)] {
    thread = gettid();
    static_cast<void>(read(file));
  }).detach();
  while (thread == 0) std::this_thread::yield();
  std::printf("%d\n", workerOf(getpid(), thread));
  return 0;
});

TEST(ImageWorker, EndsWithItsProcessAtOnce) {
  const auto start = std::chrono::steady_clock::now();
  const auto worker = std::stoi(testing::outputOfChild("exitWhileReading", {slowImage().string()}));
  // What has ended has no memory, though its number may wait to be asked for.
  const auto memory = "/proc/" + std::to_string(worker) + "/maps";
  while (std::ifstream(memory).peek() != EOF) std::this_thread::yield();
  EXPECT_LT(std::chrono::steady_clock::now() - start, kImageTimeLimit);
}

}  // namespace
}  // namespace orvane::platform
