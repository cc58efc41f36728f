#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/images/ImageReader.h>
#include <orvane/platform/images/internal/ImageConfinement.h>

#include "support/MemoryGrowth.h"
#include "support/Test.h"

#include <fcntl.h>
#include <sys/mman.h>

namespace orvane::platform {
namespace {

fs::path samplePath(const char* name) { return testData("images") / name; }

std::string sample(const char* name) { return readFile(samplePath(name)); }

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

fs::path goodImage() { return samplePath("good.png"); }

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
const ChildMain kReadAndMeasure("readAndMeasure", [](const auto& arguments) {
  const testing::MemoryGrowth growth;
  const auto image = read(arguments.at(0), 4s);
  std::cout << (image ? 0 : image.error().code()) << ' ' << growth.kibibytes();
  return 0;
});

/// A piece of the sample, from `start` on, comes `times` times.
fs::path withRepeatedPiece(const char* name, std::size_t start, std::size_t length, int times) {
  const auto content = sample(name);
  writeFile(testDirectory() / name, content.substr(0, start) +
                                        repeated(content.substr(start, length), times) +
                                        content.substr(start + length));
  return testDirectory() / name;
}

/// 20,000 scans through 64 megapixels: minutes of work.
fs::path slowImage() {
  const auto content = sample("scans.jpg");
  const auto scan = content.rfind("\xFF\xDA");
  return withRepeatedPiece("scans.jpg", scan, content.size() - 2 - scan, 20'000);
}

std::vector<fs::path> hostileImages() {
  const auto sparse = testDirectory() / "xmp.tif";
  fs::copy(samplePath("xmp.tif"), sparse);
  fs::resize_file(sparse, 1'500'000'464);
  const auto texts = sample("texts.png");
  const auto start = texts.find("zTXt") - 4;
  auto notes = sample("plain.jpg");
  notes.insert(2, repeated("\xFF\xE1\xFF\xFF" + std::string(65'533, ' '), 9'000));
  writeFile(testDirectory() / "notes.jpg", notes);
  return {samplePath("lying.avif"),
          samplePath("lying.heic"),
          sparse,
          testDirectory() / "notes.jpg",
          withRepeatedPiece("texts.png", start, texts.find("IDAT") - 4 - start, 150),
          slowImage()};
}

TEST(ImageWorker, NoImageCostsTheHostMemoryOrTime) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP() << "sanitizers keep memory of their own";
  for (const auto& file : hostileImages()) {
    SCOPED_TRACE(file);
    const auto start = std::chrono::steady_clock::now();
    std::istringstream output(outputOfChild("readAndMeasure", {file.string()}));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 12s);
    int code = -1;
    long growth = 0;
    ASSERT_TRUE(output >> code >> growth);
    EXPECT_NE(code, static_cast<int>(ImageProblem::crashed));
    EXPECT_LE(growth, 64 * 1024);
  }
}

int codeOf(const Result<RgbImage>& image) {
  return image ? 0 : static_cast<int>(image.error().code());
}

TEST(ImageWorker, OneThatOverrunsOrDiesIsReplaced) {
  const auto slow = slowImage();
  const auto signalWorker = [](int signal) { kill(workerOf(getpid(), gettid()), signal); };
  const auto expectReplaced = [] { EXPECT_EQ(codeOf(read(goodImage())), 0); };
  const auto expectProblem = [&](const fs::path& file, auto limit, const char* problem) {
    EXPECT_EQ(read(file, limit).error().description(), file.string() + problem);
    expectReplaced();
  };
  expectProblem(slow, 200ms, " takes too long to decode");
  expectProblem(samplePath("bomb.webp"), kImageTimeLimit,
                " takes more than 768 MiB of memory to decode");
  signalWorker(SIGSTOP);
  expectProblem(goodImage(), 200ms, " takes too long to decode");

  const pid_t idle = workerOf(getpid(), gettid());
  siginfo_t end{};
  signalWorker(SIGKILL);
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(idle), &end, WEXITED | WNOWAIT), 0);
  expectReplaced();
  const pid_t worker = workerOf(getpid(), gettid());
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) kill(worker, signal);  // As to a whole group.
  expectReplaced();
  EXPECT_EQ(workerOf(getpid(), gettid()), worker);
  std::jthread killer([worker, before = ticksOf(worker)] {
    // Only decoding takes it so long.
    while (ticksOf(worker) < before + 10) std::this_thread::yield();
    kill(worker, SIGKILL);
  });
  EXPECT_EQ(read(slow).error().description(), slow.string() + " makes its decoder crash");
  expectReplaced();
}

TEST(ImageWorker, HoldsNothingThatItDoesNotNeed) {
  std::array<int, 2> inherited{};
  ASSERT_EQ(pipe2(inherited.data(), O_NONBLOCK), 0);
  ASSERT_TRUE(read(goodImage()));
  close(inherited[1]);
  EXPECT_EQ(::read(inherited[0], inherited.data(), 1), 0);  // Nobody else has the other end.
  const auto process = "/proc/" + std::to_string(workerOf(getpid(), gettid()));
  const auto status = readFile(process + "/status");
  for (const auto* line : {"NoNewPrivs:\t1", "Seccomp:\t2", "SigBlk:\tfffffffe7ffbfeff"})
    EXPECT_THAT(status, HasSubstr(line));
  const auto limits = readFile(process + "/limits");
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
const ChildMain kTryWhatIsRefused("tryWhatIsRefused", [](const auto& arguments) {
  const pid_t host = std::stoi(arguments.at(0));
  const auto map = [](int flags) {
    constexpr std::size_t kLength = 4096;
    return mmap(nullptr, kLength, PROT_READ, MAP_ANONYMOUS | flags, -1, 0) != MAP_FAILED;
  };
  confine();
  struct stat found{};
  const bool sees = stat("/", &found) == 0;
  std::cout << (tgkill(getpid(), gettid(), 0) == 0) << map(MAP_PRIVATE) << ' '
            << (tgkill(host, host, 0) == 0) << map(MAP_SHARED) << map(MAP_PRIVATE | MAP_GROWSDOWN)
            << sees << std::flush;
  _exit(0);
  return 0;
});

TEST(ImageWorker, ReachesNoOtherProcessAndNoOtherMemory) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer makes calls of its own that are refused; no worker has it";
#endif
  EXPECT_EQ(outputOfChild("tryWhatIsRefused", {std::to_string(getpid())}), "11 0000");
}

/// Has a shell script be the worker. `reply` writes one number of a reply.
void beWorker(const std::string& script) {
  const auto file = testDirectory() / "orvane-image-worker";
  writeFile(file,
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
  const auto program = testDirectory() / "orvane-image-worker";
  fs::create_symlink("/bin/false", program);
  setHelperFolder(testDirectory());
  EXPECT_EQ(read(good).error().description(),
            good.string() + ": " + program.string() + " ended before it was ready");
}

TEST(ImageWorker, OneThatBreaksItsWordIsReplaced) {
  const auto codeAs = [&](ImageFit fit) { return codeOf(readImage(goodImage(), 2, 2, fit, 10s)); };
  beWorker("ready; reply 1; reply 1; reply 0; printf abc >&0; read -r end\n");
  EXPECT_EQ(codeAs(ImageFit::cover), 9) << "another size than that of the request";
  beWorker("ready; reply 0; reply 0; reply 10; read -r end\n");
  EXPECT_EQ(codeAs(ImageFit::inside), 8) << "a problem that does not exist, of which there is none";
  beWorker("exit\n");  // Started, because the one before was killed.
  EXPECT_EQ(codeAs(ImageFit::inside), ENOEXEC);
}

/// Ends while another thread decodes; prints the worker's number.
const ChildMain kExitWhileReading("exitWhileReading", [](const auto& arguments) {
  static std::atomic<pid_t> thread = 0;
  std::thread([file = arguments.at(0)] {
    thread = gettid();
    static_cast<void>(read(file));
  }).detach();
  while (thread == 0) std::this_thread::yield();
  std::cout << workerOf(getpid(), thread);
  return 0;
});

TEST(ImageWorker, EndsWithItsProcessAtOnce) {
  const auto start = std::chrono::steady_clock::now();
  const auto worker = std::stoi(outputOfChild("exitWhileReading", {slowImage().string()}));
  // What has ended has no memory, though its number may wait to be asked for.
  const auto memory = "/proc/" + std::to_string(worker) + "/maps";
  while (std::ifstream(memory).peek() != EOF) std::this_thread::yield();
  EXPECT_LT(std::chrono::steady_clock::now() - start, kImageTimeLimit);
}

}  // namespace
}  // namespace orvane::platform
