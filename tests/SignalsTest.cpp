#include <orvane/tagging/ImageTagger.h>
#include <orvane/transport/S3MultipartUploader.h>

#include "support/Test.h"

namespace orvane {
namespace {

using Signals = std::set<int>;

/// The signals that the calling thread takes, apart from the C library's own.
Signals taken() {
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  Signals open;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    const bool isOwn = signal > SIGSYS && signal < SIGRTMIN;
    if (!isOwn && sigismember(&blocked, signal) == 0) open.insert(signal);
  }
  return open;
}

class MaskClassifier final : public ImageClassifier {
 public:
  [[nodiscard]] Result<std::vector<ClassificationObservation>> classify(
      const fs::path& /*image*/) const override {
    signals = taken();
    return {};
  }
  mutable Signals signals;
};

TEST(Signals, ThreadsOfTheEngineTakeOnlyThoseOfTheirOwnFaults) {
  const Signals synchronous{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGKILL, SIGSTOP};
  const auto before = taken();
  FaultServer server;
  const auto file = testDirectory() / "file";
  writeFile(file, "x");

  std::promise<Signals> inCallback;
  S3MultipartUploader(configFor(server.url()))
      .upload(file, "key", "text/plain", {},
              [&](const Result<void>&) { inCallback.set_value(taken()); });
  EXPECT_EQ(inCallback.get_future().get(), synchronous);

  const auto classifier = std::make_shared<MaskClassifier>();
  const ImageTagger tagger(classifier);
  boost::asio::io_context context;
  boost::asio::co_spawn(context, tagger.tagImage(file), boost::asio::use_future);
  context.run();
  EXPECT_EQ(classifier->signals, synchronous);
  EXPECT_EQ(taken(), before);
}

}  // namespace
}  // namespace orvane
