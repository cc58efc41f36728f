#include <orvane/tagging/ImageTagger.h>

#include <orvane/platform/concurrency/BackgroundTask.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/SystemLog.h>
#include <orvane/tagging/TagLocalization.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <utility>

namespace orvane {
namespace {

/// What a classifier of the host throws is a failure like any other.
Result<std::vector<ClassificationObservation>> observationsOf(const ImageClassifier& classifier,
                                                              const std::filesystem::path& image) {
  constexpr std::string_view kDomain = "ImageClassifier";
  try {
    return classifier.classify(image);
  } catch (const std::exception& exception) {
    return std::unexpected(Error(kDomain, 1, exception.what()));
  } catch (...) {
    return std::unexpected(Error(kDomain, 1, "The classifier threw an unknown exception"));
  }
}

/// Says so, and yields no tags.
std::vector<TagWithConfidence> failed(const Error& error) {
  SystemLog::write("[ImageTagger] Vision classify failed: " + error.description());
  return {};
}

}  // namespace

ImageTagger& ImageTagger::shared() {
  static auto& instance = *new ImageTagger;
  return instance;
}

ImageTagger::ImageTagger(std::shared_ptr<const ImageClassifier> classifier)
    : classifier_(std::move(classifier)) {}

boost::asio::awaitable<std::vector<TagWithConfidence>> ImageTagger::tagImage(
    std::filesystem::path at) const {
  return platform::utilityTask([this, at = std::move(at)] { return classify(at); }, failed);
}

std::vector<TagWithConfidence> ImageTagger::classify(const std::filesystem::path& image) const {
  const auto& classifier = classifier_ ? *classifier_ : HostApplication::imageClassifier();
  const auto observations = observationsOf(classifier, image);
  if (!observations) return failed(observations.error());
  return processObservations(*observations);
}

std::vector<TagWithConfidence> ImageTagger::processObservations(
    const std::vector<ClassificationObservation>& observations) const {
  std::vector<TagWithConfidence> tags;
  for (const auto& observation : observations) {
    const bool isConfident = observation.confidence >= minConfidence;  // Never, if not a number.
    if (!isConfident) continue;
    std::string label = observation.identifier;
    std::ranges::replace(label, '_', ' ');
    if (auto name = TagLocalization::italianName(label)) {
      tags.push_back({std::move(*name), double{observation.confidence}});
    }
  }
  std::ranges::stable_sort(tags, std::greater{}, &TagWithConfidence::confidence);
  const auto limit = static_cast<std::uint64_t>(std::max(maxTags, std::int64_t{0}));
  if (tags.size() > limit) tags.resize(limit);
  return tags;
}

}  // namespace orvane
