#pragma once

#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>

#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::bookkeeping {

/// A map from key to record that can be written as one JSON object at little more cost than copying
/// its bytes: a few neighbours at a time keep their encoded form, until one of them changes.
///
/// `Json` gives the record's JSON form as `UploadRecordJson` does. A text that is not UTF-8 is
/// written with U+FFFD in place of what is wrong, so that no record keeps the others from being
/// written; the record in memory stays as it is. Records lie one after the other in memory, in no
/// particular order. One thread at a time.
template <class Record, class Json>
class RecordMap {
 public:
  RecordMap() = default;
  RecordMap(RecordMap&&) noexcept = default;
  RecordMap& operator=(RecordMap&&) noexcept = default;

  [[nodiscard]] std::size_t size() const { return index_.size(); }

  /// The record filed under `key`, or null; valid until the map is changed.
  [[nodiscard]] const Record* find(std::string_view key) const {
    const auto found = index_.find(key);
    if (found == index_.end()) return nullptr;
    return &groups_[found->second / kGroupSize].entries[found->second % kGroupSize].record;
  }

  /// Calls `visit` with every record.
  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const auto& group : groups_) {
      for (const auto& entry : group.entries) visit(entry.record);
    }
  }

  /// Files `record` under `key`, in place of an earlier one.
  void put(std::string_view key, Record record) {
    if (const auto found = index_.find(key); found != index_.end()) {
      changedEntryAt(found->second).record = std::move(record);
    } else {
      Entry& entry = append(key);
      entry.record = std::move(record);
      index_.emplace(entry.key, index_.size());
    }
  }

  /// Changes the record filed under `key` with `change(record)`. False when there is none.
  template <class Change>
  bool update(std::string_view key, Change&& change) {
    const auto found = index_.find(key);
    if (found == index_.end()) return false;
    change(changedEntryAt(found->second).record);
    return true;
  }

  /// Changes every record for which `select` holds with `change(record)`.
  template <class Select, class Change>
  void updateIf(Select&& select, Change&& change) {
    for (auto& group : groups_) {
      for (auto& entry : group.entries) {
        if (!select(std::as_const(entry.record))) continue;
        change(entry.record);
        group.json.clear();
      }
    }
  }

  /// Removes the record filed under `key`, if there is one.
  void remove(std::string_view key) {
    const auto found = index_.find(key);
    if (found == index_.end()) return;
    const auto position = found->second;
    index_.erase(found);
    replaceByLast(position);
  }

  void clear() { *this = RecordMap(); }

  /// The map in a text that is one JSON object, or nothing when any part of it is unreadable. Of
  /// entries of one key the last one counts.
  [[nodiscard]] static std::optional<RecordMap> decode(const simdjson::padded_string& text) {
    RecordMap map;
    const auto readEntry = [&map](std::string_view key, simdjson::ondemand::value& value) {
      simdjson::ondemand::object object;
      return !value.get_object().get(object) && Json::read(object, map.append(key).record);
    };
    const bool readable = platform::readDocument(text, [&](simdjson::ondemand::object& object) {
      return platform::readMap(object, readEntry);
    });
    if (!readable) return std::nullopt;
    map.fillIndex();
    return map;
  }

  /// Makes sure that every entry is encoded. False when some record has no JSON form.
  [[nodiscard]] bool encodeAll() {
    platform::JsonWriter writer(platform::BadText::repair);
    return std::ranges::all_of(
        groups_, [&writer](Group& group) { return !group.json.empty() || encode(group, writer); });
  }

  /// Writes the map as one JSON object with `append(text)`, which returns whether to go on.
  /// `encodeAll` must have succeeded since the last change.
  template <class Append>
  [[nodiscard]] bool write(Append&& append) const {
    if (!append("{")) return false;
    std::size_t comma = 1;
    for (const auto& group : groups_) {
      if (!append(std::string_view(group.json).substr(std::exchange(comma, 0)))) return false;
    }
    return append("}");
  }

 private:
  struct Entry {
    explicit Entry(std::string_view name) : key(name), record(Json::blank()) {}

    std::string key;
    Record record;
  };

  struct Group {
    std::vector<Entry> entries;  ///< Has room for all from the start, so that none ever moves.
    std::string json;            ///< For each entry a comma, its key and its record; or empty.
  };

  static constexpr std::size_t kGroupSize = 16;

  Entry& changedEntryAt(std::size_t position) {
    Group& group = groups_[position / kGroupSize];
    group.json.clear();
    return group.entries[position % kGroupSize];
  }

  /// A new entry at the end, which is not in the index yet.
  Entry& append(std::string_view key) {
    if (groups_.empty() || groups_.back().entries.size() == kGroupSize) {
      groups_.emplace_back().entries.reserve(kGroupSize);
    }
    groups_.back().json.clear();
    return groups_.back().entries.emplace_back(key);
  }

  /// Puts the last entry in the place of the one at `position`, which has left the index.
  void replaceByLast(std::size_t position) {
    Group& lastGroup = groups_.back();
    Entry& last = lastGroup.entries.back();
    if (Entry& place = changedEntryAt(position); &place != &last) {
      index_.erase(last.key);
      place = std::move(last);
      index_.emplace(place.key, position);
    }
    lastGroup.json.clear();
    lastGroup.entries.pop_back();
    if (lastGroup.entries.empty()) groups_.pop_back();
  }

  /// Fills the index after decoding. In one go the processor works on several entries at a time.
  void fillIndex() {
    index_.reserve(groups_.size() * kGroupSize);
    std::vector<std::size_t> repeated;
    std::size_t position = 0;
    for (auto& group : groups_) {
      for (auto& entry : group.entries) {
        const auto [found, isNew] = index_.emplace(entry.key, position);
        if (!isNew) {
          changedEntryAt(found->second).record = std::move(entry.record);
          repeated.push_back(position);
        }
        ++position;
      }
    }
    for (const auto place : repeated | std::views::reverse) replaceByLast(place);
  }

  /// False, and nothing is changed, when a record has no JSON form.
  [[nodiscard]] static bool encode(Group& group, platform::JsonWriter& writer) {
    writer.restart();
    writer.beginObject();
    for (const auto& entry : group.entries) {
      writer.name(entry.key);
      if (!Json::write(writer, entry.record)) return false;
    }
    writer.endObject();
    const auto text = writer.text();
    group.json.assign(",").append(text.substr(1, text.size() - 2));
    return true;
  }

  std::vector<Group> groups_;  ///< All full but the last one.
  /// Key → entry number; the views point into `Entry::key`.
  boost::unordered_flat_map<std::string_view, std::size_t, std::hash<std::string_view>> index_;
};

}  // namespace orvane::bookkeeping
