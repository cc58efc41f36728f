// A host that brings a classifier of its own: photos show what their folder is called.
//
// usage: orvane-classifier PHOTO...
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/vision/ImageClassifier.h>
#include <orvane/tagging/ImageTagger.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <filesystem>
#include <iostream>
#include <memory>
#include <vector>

namespace {

using Observations = std::vector<orvane::ClassificationObservation>;

/// Any thread may ask it, several at once; it has no state.
class FolderClassifier final : public orvane::ImageClassifier {
 public:
  [[nodiscard]] orvane::Result<Observations> classify(
      const std::filesystem::path& image) const override {
    std::error_code error;
    const auto folder = std::filesystem::absolute(image, error).parent_path().filename();
    if (error || !std::filesystem::exists(image, error)) {
      return std::unexpected(orvane::Error("FolderClassifier", 1, "no such photo"));
    }
    return Observations{{folder.string(), 1.0F}};
  }
};

}  // namespace

int main(int argc, char** argv) {
  orvane::HostOptions options;
  options.imageClassifier = std::make_shared<FolderClassifier>();
  if (!orvane::HostApplication::configure(options)) return 1;
  for (int i = 1; i < argc; ++i) {
    boost::asio::io_context context;
    auto tags = boost::asio::co_spawn(context, orvane::ImageTagger::shared().tagImage(argv[i]),
                                      boost::asio::use_future);
    context.run();
    std::cout << argv[i] << ':';
    for (const auto& [tag, confidence] : tags.get()) std::cout << ' ' << tag;
    std::cout << '\n';
  }
}
