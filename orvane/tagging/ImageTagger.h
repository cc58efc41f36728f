#pragma once

#include <orvane/platform/vision/ImageClassifier.h>
#include <orvane/tagging/TagWithConfidence.h>

#include <boost/asio/awaitable.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace orvane {

/// Turns an image file into a short list of Italian tags: what the image classifier is confident to
/// see in it, translated by `TagLocalization`. Keeps nothing between calls and stores no tags.
///
/// Any thread may tag, any number of images at once; a child that was forked without exec must not.
/// The two fields are read without a lock by the work under way: they are to be set before, never
/// while calls are in flight.
///
///     auto tags = co_await ImageTagger::shared().tagImage("/photos/IMG_0042.jpg");
class ImageTagger {
 public:
  /// The process-wide tagger, which lives as long as the process; it asks the classifier that
  /// `HostApplication` names.
  [[nodiscard]] static ImageTagger& shared();

  /// A tagger of its own, which must outlive its calls; without a classifier it asks the same one
  /// as the shared tagger.
  explicit ImageTagger(std::shared_ptr<const ImageClassifier> classifier = {});

  /// The most tags one call returns; 0 or more. A negative number counts as 0.
  std::int64_t maxTags = 5;

  /// The lowest confidence of the classifier, from 0 to 1, with which a label is kept.
  float minConfidence = 0.7F;

  /// The tags of the image file at `at`, the most confident first, those of equal confidence in the
  /// classifier's order; each with the classifier's confidence from 0 to 1. Two labels of one
  /// translation give two pairs. Empty when nothing qualifies, and when the file cannot be read or
  /// classified, or no thread be started for it: then one line that begins "[ImageTagger] Vision
  /// classify failed: " goes to `SystemLog`. Such a failure may be passing, so an empty list is not
  /// to be taken as the last word on an image. Never fails.
  ///
  /// The caller is suspended and resumes on its own executor, which must outlive the operation. The
  /// work runs on a thread of lowered priority, as many at once as there are cores; the engine's
  /// own classifiers decode in a process beside each of these threads. Cancelling has no effect.
  /// When the process exits, operations under way are left where they are.
  [[nodiscard]] boost::asio::awaitable<std::vector<TagWithConfidence>> tagImage(
      std::filesystem::path at) const;

 private:
  [[nodiscard]] std::vector<TagWithConfidence> classify(const std::filesystem::path& image) const;
  [[nodiscard]] std::vector<TagWithConfidence> processObservations(
      const std::vector<ClassificationObservation>& observations) const;

  std::shared_ptr<const ImageClassifier> classifier_;
};

}  // namespace orvane
