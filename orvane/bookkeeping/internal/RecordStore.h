#pragma once

#include <orvane/bookkeeping/internal/RecordMap.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/concurrency/ProcessExit.h>
#include <orvane/platform/concurrency/WorkQueue.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/json/JsonFile.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace orvane::bookkeeping {

/// A `RecordMap` in memory that is mirrored to one JSON file: what the stores have in common.
///
/// The file is read when the store is made, and from then on written as a whole by each change.
/// All work is done one at a time on a queue whose label is the host's identifier and a suffix. Any
/// thread may call. A store is never destroyed.
template <class Record, class Json>
class RecordStore {
 public:
  using Records = RecordMap<Record, Json>;

  RecordStore(const std::string& queueLabelSuffix, std::string_view fileName)
      : file_(inApplicationSupport(fileName)),
        queue_(1, HostApplication::identifier() + queueLabelSuffix) {
    load();
  }

  /// Returns what `look(records)` returns, after every change queued before. Blocks until then.
  template <class Look>
  auto read(Look&& look) {
    return queue_.sync([&] { return look(std::as_const(records_)); });
  }

  /// A copy of the record filed under `key`; blocks as `read` does.
  [[nodiscard]] std::optional<Record> copyOf(std::string_view key) {
    return read([key](const Records& records) {
      const auto* const found = records.find(key);
      return found == nullptr ? std::nullopt : std::optional(*found);
    });
  }

  /// Copies of the records for which `select` holds, in no particular order; blocks as `read` does.
  template <class Select>
  [[nodiscard]] std::vector<Record> copiesIf(Select&& select) {
    return read([&select](const Records& records) {
      std::vector<Record> copies;
      records.forEach([&](const Record& record) {
        if (select(record)) copies.push_back(record);
      });
      return copies;
    });
  }

  /// Queues `apply(records)`, after which the file is written, and returns at once; while the
  /// process exits, and where no thread can be started, it does both itself. Where `apply` returns
  /// a bool, false leaves the file as it is.
  template <class Apply>
  void change(Apply apply) {
    const bool willRun = queue_.async([this, apply = std::move(apply)]() mutable {
      if constexpr (std::is_same_v<std::invoke_result_t<Apply&, Records&>, bool>) {
        if (apply(records_)) persist();
      } else {
        apply(records_);
        persist();
      }
    });
    if (!willRun) queue_.sync([] {});
  }

  /// Removes every record and the file. Blocks until that is done.
  void reset() {
    queue_.sync([this] {
      records_.clear();
      file_.remove();
    });
  }

  /// Has a normal exit write the changes that are queued by then, in a store that is never
  /// destroyed. False when the exit has begun; then changes are written by who makes them anyway.
  bool drainAtExit() {
    using platform::ProcessExit;
    return ProcessExit::add(ProcessExit::Stage::stores, [this] { queue_.sync([] {}); });
  }

 private:
  static std::optional<std::filesystem::path> inApplicationSupport(std::string_view name) {
    const auto folder = HostApplication::applicationSupportDirectory();
    if (!folder) return std::nullopt;
    return *folder / name;
  }

  void load() {
    const auto text = file_.read();
    if (!text) return;
    if (auto decoded = Records::decode(*text)) {
      queue_.sync([&] { records_ = std::move(*decoded); });
    } else {
      file_.setUndecodable();
    }
  }

  /// Call on `queue_` only.
  void persist() {
    file_.replace([this](platform::AtomicFile& file) {
      return records_.encodeAll() && records_.write([&file](std::string_view text) {
        return file.append(bytesOf(text)).has_value();
      });
    });
  }

  Records records_;
  platform::JsonFile file_;
  platform::WorkQueue queue_;
};

}  // namespace orvane::bookkeeping
