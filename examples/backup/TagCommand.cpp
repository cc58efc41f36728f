#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/vision/ImageClassifier.h>
#include <orvane/tagging/ImageTagger.h>
#include <orvane/tagging/TagDatabase.h>

#include "Commands.h"
#include "Display.h"
#include "Records.h"
#include "Rules.h"
#include "Setup.h"
#include "Tasks.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace backup {
namespace {

using orvane::TagDatabase;
using orvane::UploadRecord;
using orvane::UploadStatus;
using orvane::UploadStore;

/// What stands in a record whose photo has been looked at, also when it shows nothing known.
constexpr std::int64_t kTagsVersion = 1;

bool isPhotoBackedUp(const UploadRecord& record) {
  return record.status == UploadStatus::completed &&
         contentTypeOf(record.id()).starts_with("image/");
}

/// The host's classifier, which remembers what it has looked at: a tagger's empty list may also
/// mean that it could not.
class RememberingClassifier final : public orvane::ImageClassifier {
 public:
  [[nodiscard]] orvane::Result<std::vector<orvane::ClassificationObservation>> classify(
      const Path& image) const override {
    auto seen = orvane::HostApplication::imageClassifier().classify(image);
    const std::lock_guard lock(mutex_);
    if (seen) lookedAt_.insert(image);
    return seen;
  }
  /// Whether the image was looked at; forgets it.
  [[nodiscard]] bool takeLookedAt(const Path& image) {
    const std::lock_guard lock(mutex_);
    return lookedAt_.erase(image) > 0;
  }

 private:
  mutable std::mutex mutex_;
  mutable std::set<Path> lookedAt_;
};

/// Looks at every photo that is backed up and was not looked at before.
///
/// A photo is done once its record is saved, and its record is saved after its tags: a killed run
/// loses nothing, and what it has reported is not done again.
class Backfill {
 public:
  explicit Backfill(std::filesystem::path folder) : folder_(std::move(folder)) {}

  int run();

 private:
  void lookAgainIfForgotten();
  void begin();
  Task tagNextPhotos();
  Task tag(UploadRecord record);
  void report();

  const std::shared_ptr<RememberingClassifier> classifier_ =
      std::make_shared<RememberingClassifier>();
  const orvane::ImageTagger tagger_{classifier_};
  TagDatabase& database_ = openTags();
  const std::string device_ = deviceIdentity();
  const std::filesystem::path folder_;
  Display display_;
  RecordSaver saver_;

  std::vector<UploadRecord> waiting_;
  std::size_t next_ = 0;              ///< The first of them that was never started.
  std::vector<UploadRecord> tagged_;  ///< Not reported yet.
  std::int64_t done_ = 0;             ///< Photos looked at, by earlier runs too.
  std::int64_t total_ = 0;            ///< Photos that were or can be looked at.
  std::size_t failed_ = 0;            ///< Photos that the classifier could not look at.
  std::size_t gone_ = 0;  ///< Photos that cannot be found in the folder, or not be read.
};

int Backfill::run() {
  lookAgainIfForgotten();
  begin();
  const auto saveAndReport = [this] {
    if (saver_.saveIfDue()) report();
  };
  runTasks(kAtATime, [this] { return tagNextPhotos(); }, saveAndReport);
  saver_.save();
  report();
  display_.clearBar();
  if (done_ == total_) valueOf(database_.completeBackfill());
  std::cout << done_ << " of " << countText(total_, "photo") << " looked at, " << next_ - failed_
            << " of them now\n";
  if (gone_ > 0) {
    std::cerr << countText(gone_, "photo") << " cannot be read, or not found in the folder\n";
  }
  if (failed_ > 0) {
    std::cerr << countText(failed_, "photo")
              << " could not be looked at; the next run tries again\n";
  }
  if (stopRequested()) return kInterrupted;
  return gone_ + failed_ > 0 ? kSomethingFailed : kSuccess;
}

/// A lost database, or a new identity: what the device published would soon be replaced by the
/// tags of new photos alone.
void Backfill::lookAgainIfForgotten() {
  const auto isTagged = [](const UploadRecord& record) { return !record.tags.empty(); };
  if (!std::ranges::any_of(UploadStore::shared().allRecords(), isTagged)) return;
  if (!valueOf(database_.exportAllTagsForDevice(device_)).empty()) return;
  std::cout << "This device's tags are lost: every photo is looked at again\n";
  UploadStore::shared().resetTagsVersion();
}

void Backfill::begin() {
  for (UploadRecord& record : UploadStore::shared().allRecords()) {
    if (!isPhotoBackedUp(record)) continue;
    if (record.tagsVersion >= kTagsVersion) {
      ++done_;
    } else if (access((folder_ / record.id()).c_str(), R_OK) == 0) {
      waiting_.push_back(std::move(record));
    } else {
      ++gone_;
    }
  }
  std::ranges::sort(waiting_, {}, &UploadRecord::id);
  total_ = done_ + std::ssize(waiting_);
  const auto before = valueOf(database_.getBackfillProgress());
  const bool goesOn = before && before->total == total_ && before->completed == 0;
  if (!goesOn) valueOf(database_.initializeBackfill(total_));
  valueOf(database_.updateBackfillProgress(done_));
}

Task Backfill::tagNextPhotos() {
  while (next_ < waiting_.size() && !stopRequested()) co_await tag(std::move(waiting_[next_++]));
}

Task Backfill::tag(UploadRecord record) {
  const Path photo = folder_ / record.id();
  const auto tags = co_await tagger_.tagImage(photo);
  if (!classifier_->takeLookedAt(photo)) {
    ++failed_;  // The next run tries it again.
    co_return;
  }
  valueOf(database_.upsertTags(record.id(), tags, device_));
  record.tags.clear();
  for (const auto& [tag, confidence] : tags) record.tags.push_back(tag);
  record.tagsVersion = kTagsVersion;
  saver_.add(record);
  tagged_.push_back(std::move(record));
}

void Backfill::report() {
  done_ += std::ssize(tagged_);
  valueOf(database_.updateBackfillProgress(done_));
  for (const UploadRecord& record : std::exchange(tagged_, {})) {
    if (!display_.showsBar()) display_.print("tagged", record.id(), ": " + listText(record.tags));
  }
  display_.drawBar(
      static_cast<double>(done_) / static_cast<double>(std::max<std::int64_t>(total_, 1)),
      std::to_string(done_) + " of " + countText(total_, "photo"));
}

}  // namespace

int tagCommand(const std::optional<std::filesystem::path>& folder, bool again) {
  const Path photos = folder ? *folder : rememberedFolder();
  requireFolder(photos);
  lockState();
  if (again) UploadStore::shared().resetTagsVersion();
  listenForStop();
  return Backfill(photos).run();
}

}  // namespace backup
