#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/files/FileVersion.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/transport/ObjectDownloader.h>

#include "Commands.h"
#include "Display.h"
#include "Folder.h"
#include "Objects.h"
#include "Place.h"
#include "Rules.h"
#include "Setup.h"
#include "Tasks.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <fcntl.h>
#include <fnmatch.h>

#include <algorithm>
#include <deque>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace backup {
namespace {

using orvane::DownloadedObject;
using orvane::UploadRecord;
using orvane::UploadStatus;
using orvane::UploadStore;

constexpr std::string_view kFiles = "media/";  ///< Keys of files begin with it.

/// File names and ETags.
using Objects = std::map<std::string, std::string>;

/// Brings files back from the object store, a few at a time.
class Restore {
 public:
  Restore(const Path& folder, const orvane::S3Config& config, bool overwrites)
      : folder_(folder),
        root_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        existing_(overwrites ? orvane::ExistingFile::replace : orvane::ExistingFile::keep),
        downloader_(config) {}

  void run(const Objects& objects);
  void printSummary() const;
  [[nodiscard]] bool allWell() const { return failed_ == 0; }

  /// A file that is in the folder as it is in the store.
  struct PresentFile {
    std::string eTag;
    std::optional<orvane::platform::FileVersion> file;  ///< As it was when it had been restored.
  };
  using Present = std::map<std::string, PresentFile>;
  [[nodiscard]] const Present& present() const { return present_; }

 private:
  struct Item {
    std::string name;
    std::int64_t received = 0;
    boost::asio::cancellation_signal stop = {};
  };

  Task restoreNextFiles();
  Task restore(Item& item);
  orvane::Async<DownloadedObject> downloaded(Item& item);
  [[nodiscard]] bool mayRetry(const Item& item, const orvane::Error& error,
                              std::chrono::duration<double> delay);
  void succeed(const Item& item, const DownloadedObject& object);
  void fail(const Item& item, const orvane::Error& error);
  void tick();
  [[nodiscard]] std::int64_t bytesReceived() const;

  const Path folder_;
  const orvane::platform::FileDescriptor root_;
  const orvane::ExistingFile existing_;
  orvane::ObjectDownloader downloader_;
  Display display_;

  std::deque<Item> items_;
  std::size_t next_ = 0;  ///< The first item that was never started.
  Present present_;
  std::size_t restored_ = 0;
  std::size_t unchecked_ = 0;
  std::size_t failed_ = 0;
  bool unreachable_ = false;  ///< The store was, for all retries of a file.
  bool stopAnnounced_ = false;
};

void Restore::run(const Objects& objects) {
  for (const auto& [name, eTag] : objects) items_.emplace_back(name);
  runTasks(kAtATime, [this] { return restoreNextFiles(); }, [this] { tick(); });
  display_.clearBar();
}

Task Restore::restoreNextFiles() {
  while (next_ < items_.size() && !stopRequested() && !unreachable_) {
    co_await restore(items_[next_++]);
  }
}

Task Restore::restore(Item& item) {
  const auto object = co_await downloaded(item);
  if (object) co_return succeed(item, *object);
  if (stopRequested() && isCancelled(object.error())) co_return;
  unreachable_ = unreachable_ || isUnreachable(object.error());
  fail(item, object.error());
}

orvane::Async<DownloadedObject> Restore::downloaded(Item& item) {
  auto place = placeFor(item.name, root_);
  if (!place) co_return std::unexpected(std::move(place.error()));
  auto running = downloader_.download(
      std::string(kFiles) + item.name, place->path(), existing_,
      {.mayRetry = [&](const auto& error, auto delay) { return mayRetry(item, error, delay); },
       .progress = [&](std::int64_t received, std::int64_t) { item.received = received; }});
  auto stoppable = boost::asio::co_spawn(
      mainLoop(), std::move(running),
      boost::asio::bind_cancellation_slot(item.stop.slot(), boost::asio::use_awaitable));
  co_return co_await std::move(stoppable);
}

bool Restore::mayRetry(const Item& item, const orvane::Error& error,
                       std::chrono::duration<double> delay) {
  if (stopRequested()) return false;
  display_.print("retrying", item.name,
                 " in " + decimal(delay.count()) + " s: " + explanation(error), std::cerr);
  return true;
}

void Restore::succeed(const Item& item, const DownloadedObject& object) {
  const auto file = orvane::platform::versionOf(folder_ / item.name);
  present_.emplace(item.name, PresentFile{object.eTag, file ? std::optional(*file) : std::nullopt});
  if (object.wasThere) return;
  ++restored_;
  if (!object.isChecked) {
    ++unchecked_;
    display_.print("unchecked", item.name, ": the store has no checksum of it", std::cerr);
  } else if (!display_.showsBar()) {
    display_.print("restored", item.name, ", " + byteText(object.size));
  }
}

void Restore::fail(const Item& item, const orvane::Error& error) {
  ++failed_;
  const bool isInTheWay = error.domain() == orvane::Error::kPosix && error.code() == EEXIST;
  display_.print(
      "failed", item.name,
      isInTheWay ? ": another file is there (--overwrite replaces it)" : ": " + explanation(error),
      std::cerr);
}

void Restore::tick() {
  if (stopRequested() && !std::exchange(stopAnnounced_, true)) {
    display_.print("stopping", "the downloads under way", "; the next restore goes on with them");
    for (Item& item : items_) item.stop.emit(boost::asio::cancellation_type::terminal);
  }
  const auto done = static_cast<double>(present_.size() + failed_);
  display_.drawBar(done / static_cast<double>(std::max<std::size_t>(items_.size(), 1)),
                   std::to_string(present_.size()) + " of " + countText(items_.size(), "file") +
                       ", " + byteText(bytesReceived()));
}

std::int64_t Restore::bytesReceived() const {
  std::int64_t received = 0;
  for (const Item& item : items_) received += item.received;
  return received;
}

void Restore::printSummary() const {
  std::cout << countText(restored_, "file") << " restored (" << byteText(bytesReceived()) << "), "
            << present_.size() - restored_ << " already there, " << failed_ << " failed.\n";
  if (unchecked_ > 0) std::cout << countText(unchecked_, "file") << " could not be checked.\n";
  const auto left = items_.size() - present_.size() - failed_;
  if (left > 0) std::cout << countText(left, "file") << " left for the next restore.\n";
}

UploadRecord completedRecord(const std::string& name, const std::string& eTag) {
  UploadRecord record(name, std::string(kFiles) + name, UploadStatus::completed, 0, 0);
  record.eTag = eTag;
  return record;
}

/// Files a record for each object that has none, so that the tags of other devices find it.
void recordObjects(const Objects& objects) {
  std::vector<UploadRecord> records;
  for (const auto& [name, eTag] : objects) {
    if (!UploadStore::shared().record(name)) records.push_back(completedRecord(name, eTag));
  }
  UploadStore::shared().upsertBatch(std::move(records));
}

std::optional<orvane::platform::FileVersion> versionOf(const LocalFile& file) {
  const auto version = orvane::platform::versionOf(file.path);
  return version ? std::optional(*version) : std::nullopt;
}

/// Records what was restored and is unchanged since, so that the next run sends none of it.
void recordFiles(const Folder& folder, const Restore::Present& present) {
  std::vector<UploadRecord> records;
  for (const LocalFile& file : folder.files) {
    const auto object = present.find(file.name);
    if (object == present.end() || object->second.file != versionOf(file)) continue;
    auto known = UploadStore::shared().record(file.name);
    auto record = known ? *std::move(known) : completedRecord(file.name, object->second.eTag);
    record.status = UploadStatus::completed;
    record.eTag = object->second.eTag;
    record.totalBytes = file.size;
    record.bytesUploaded = file.size;
    record.creationDate = file.modified;
    records.push_back(std::move(record));
  }
  UploadStore::shared().upsertBatch(std::move(records));
}

/// The files of the listing that the user asked for.
Objects chosen(const Objects& objects, const RestoreOptions& options) {
  std::set<std::string> tagged;
  if (options.tag) {
    for (auto& name : valueOf(openTags().searchAssetsByTag(*options.tag))) {
      tagged.insert(std::move(name));
    }
  }
  Objects files;
  for (const auto& [name, eTag] : objects) {
    const bool fits = !options.only || fnmatch(options.only->c_str(), name.c_str(), 0) == 0;
    if (fits && (!options.tag || tagged.contains(name))) files.emplace(name, eTag);
  }
  return files;
}

/// What the store holds of the folder.
Objects listFiles(const orvane::S3Config& config) {
  Objects files;
  for (auto& [key, eTag] : valueOf(listObjects(config))) {
    if (key.starts_with(kFiles)) files.emplace(key.substr(kFiles.size()), std::move(eTag));
  }
  return files;
}

}  // namespace

int restoreCommand(const Path& folder, const orvane::S3Config& config,
                   const RestoreOptions& options) {
  std::error_code failed;
  std::filesystem::create_directories(folder, failed);
  requireFolder(folder);
  lockState();
  requireSameStore(config);
  // Files that are restored to another place than they were backed up from are copies.
  const bool isBackedUpFolder = servesFolder(folder);
  if (isBackedUpFolder) bindState(folder, config);
  listenForStop();
  const auto objects = listFiles(config);
  if (isBackedUpFolder && options.tag) {
    recordObjects(objects);
    takeOverTags(config);
  }
  Restore restore(folder, config, options.overwrites);
  restore.run(chosen(objects, options));
  if (isBackedUpFolder) recordFiles(listFolder(folder, ""), restore.present());
  restore.printSummary();
  if (stopRequested()) return kInterrupted;
  return restore.allWell() ? kSuccess : kSomethingFailed;
}

}  // namespace backup
