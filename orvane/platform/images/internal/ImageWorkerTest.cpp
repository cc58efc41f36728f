#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/images/ImageReader.h>
#include <orvane/platform/images/internal/ImageConfinement.h>

#include "support/ChildProcess.h"
#include "support/MemoryGrowth.h"
#include "support/TemporaryDirectory.h"
#include "support/TestImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
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

/// The processor time that a process has used for itself, in ticks of 10 ms.
long ticksOf(pid_t process) {
  std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
  std::string word;
  for (int field = 1; field <= 14; ++field) stat >> word;
  return std::stol(word);
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
  const long before = ticksOf(worker);
  std::jthread killer([worker, before] {
    // Only decoding takes it so long.
    while (ticksOf(worker) < before + 10) std::this_thread::yield();
    kill(worker, SIGKILL);
  });
  const auto image = read(slow);
  EXPECT_EQ(codeOf(image), ImageProblem::crashed);
  EXPECT_EQ(image.error().description(), slow.string() + " makes its decoder crash");
  EXPECT_EQ(codeOf(read(good)), ImageProblem::none);
}

TEST(ImageWorker, HoldsNothingThatItDoesNotNeed) {
  std::array<int, 2> inherited{};
  ASSERT_EQ(pipe2(inherited.data(), O_NONBLOCK), 0);
  ASSERT_TRUE(read(goodImage()));
  close(inherited[1]);
  EXPECT_EQ(::read(inherited[0], inherited.data(), 1), 0);  // Nobody else has the other end.
  const auto process = "/proc/" + std::to_string(workerOf(getpid(), gettid()));
  const auto status = testing::readFile(process + "/status");
  for (const auto* line : {"NoNewPrivs:\t1", "Seccomp:\t2", "SigBlk:\tfffffffe7ffbfeff"})
    EXPECT_THAT(status, HasSubstr(line));
  const auto limits = testing::readFile(process + "/limits");
  for (const auto* line : {"Max data size             805306368            805306368",
                           "Max file size             0                    0",
                           "Max open files            16                   16"}) {
    EXPECT_THAT(limits, HasSubstr(line));
  }
  // What belongs to a process is the superuser's where it can neither be dumped nor traced.
  struct stat owned{};
  ASSERT_EQ(stat((process + "/fd").c_str(), &owned), 0);
  EXPECT_EQ(owned.st_uid, 0);
}

/// Confines itself and prints what it may still do.
const testing::ChildMain kTryWhatIsRefused("tryWhatIsRefused", [](const auto& arguments) {
  const pid_t host = std::stoi(arguments.at(0));
  const auto map = [](int flags) {
    constexpr std::size_t kLength = 4096;
    return mmap(nullptr, kLength, PROT_READ, MAP_ANONYMOUS | flags, -1, 0) != MAP_FAILED;
  };
  confine();
  struct stat found{};
  const bool sees = stat("/", &found) == 0;
  std::printf("%d%d %d%d%d%d\n", tgkill(getpid(), gettid(), 0) == 0, map(MAP_PRIVATE),
              tgkill(host, host, 0) == 0, map(MAP_SHARED), map(MAP_PRIVATE | MAP_GROWSDOWN), sees);
  std::fflush(stdout);
  _exit(0);
  return 0;
});

TEST(ImageWorker, ReachesNoOtherProcessAndNoOtherMemory) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer makes calls of its own that are refused; no worker has it";
#endif
  EXPECT_EQ(testing::outputOfChild("tryWhatIsRefused", {std::to_string(getpid())}), "11 0000\n");
}

/// Has a shell script be the worker. `reply` writes one number of a reply.
void beWorker(const std::string& script) {
  const auto file = testDirectory() / "orvane-image-worker";
  testing::writeFile(file,
                     "#!/bin/sh\nreply() { printf \"\\\\$1\\\\0\\\\0\\\\0\" >&0; }\n"
                     "ready() { reply 0; reply 0; reply 0; }\n" +
                         script);
  fs::permissions(file, fs::perms::owner_all);
  setHelperFolder(testDirectory());
}

TEST(ImageWorker, OneThatCannotBeStartedIsNamed) {
  const auto good = goodImage();
  setHelperFolder("/nowhere");
  EXPECT_EQ(read(good).error().description(),
            good.string() + ": /nowhere/orvane-image-worker: No such file or directory");
  const auto program = testing::testDirectory() / "orvane-image-worker";
  fs::create_symlink("/bin/false", program);
  setHelperFolder(testing::testDirectory());
  EXPECT_EQ(read(good).error().description(),
            good.string() + ": " + program.string() + " ended before it was ready");
}

TEST(ImageWorker, OneThatBreaksItsWordIsReplaced) {
  const auto good = goodImage();
  const auto readAs = [&](ImageFit fit) {
    return static_cast<ImageProblem>(readImage(good, 2, 2, fit, 10s).error().code());
  };
  beWorker("ready; reply 1; reply 1; reply 0; printf abc >&0; read -r end\n");
  EXPECT_EQ(readAs(ImageFit::cover), ImageProblem::crashed);
  beWorker("ready; reply 0; reply 0; reply 10; read -r end\n");
  EXPECT_EQ(readAs(ImageFit::inside), ImageProblem::tooMuchMemory);
  beWorker("exit\n");  // Started, because the one before was killed.
  EXPECT_EQ(readAs(ImageFit::inside), static_cast<ImageProblem>(ENOEXEC));
}

const testing::ChildMain kReadOne("readOne", [](const auto& arguments) {
  beWorker(
      "ready; kill -STOP $PPID; sleep 3; kill -CONT $PPID\n"
      "reply 1; reply 1; reply 0; printf abc >&0; read -r end\n");
  const auto image = read(arguments.at(0), 2s);
  std::puts(image ? "read" : image.error().description().c_str());
  return 0;
});

TEST(ImageWorker, TimeInWhichTheHostIsStoppedDoesNotCount) {
  EXPECT_EQ(testing::outputOfChild("readOne", {goodImage().string()}), "read\n");
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
