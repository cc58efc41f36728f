#pragma once

#include <orvane/bookkeeping/internal/JsonReader.h>
#include <orvane/bookkeeping/internal/JsonWriter.h>

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::internal {

/// A map from key to record that can be written as one JSON object at little more cost than copying
/// its bytes: each entry keeps its encoded form, which only a change of that entry renews.
///
/// `Json` gives the record's JSON form as `UploadRecordJson` does. Records lie one after the other
/// in memory, in no particular order. One thread at a time.
template <class Record, class Json>
class RecordMap {
 public:
  RecordMap() = default;
  RecordMap(RecordMap&&) noexcept = default;
  RecordMap& operator=(RecordMap&&) noexcept = default;

  [[nodiscard]] std::size_t size() const { return entries_.size(); }

  /// The record filed under `key`, or null; valid until the map is changed.
  [[nodiscard]] const Record* find(std::string_view key) const {
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &found->second->record;
  }

  /// Calls `visit` with every record.
  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const auto& entry : entries_) visit(entry.record);
  }

  /// Files `record` under `key`, in place of an earlier one.
  void put(std::string_view key, Record record) {
    if (const auto found = index_.find(key); found != index_.end()) {
      found->second->record = std::move(record);
      renew(*found->second);
    } else {
      encode(add(key, std::move(record)));
    }
  }

  /// Changes the record filed under `key`, if there is one, with `change(record)`.
  template <class Change>
  bool update(std::string_view key, Change&& change) {
    const auto found = index_.find(key);
    if (found == index_.end()) return false;
    change(found->second->record);
    renew(*found->second);
    return true;
  }

  /// Changes every record for which `select` holds.
  template <class Select, class Change>
  void updateIf(Select&& select, Change&& change) {
    for (auto& entry : entries_) {
      if (!select(std::as_const(entry.record))) continue;
      change(entry.record);
      renew(entry);
    }
  }

  /// Removes the record filed under `key`, if there is one.
  void remove(std::string_view key) {
    const auto found = index_.find(key);
    if (found == index_.end()) return;
    Entry& entry = *found->second;
    forget(entry);
    index_.erase(found);
    if (Entry& last = entries_.back(); &last != &entry) {
      index_.erase(last.key);
      entry = std::move(last);
      index_.emplace(entry.key, &entry);
    }
    entries_.pop_back();
  }

  void clear() { *this = RecordMap(); }

  /// The map in a text that is one JSON object, or nothing when any part of it is unreadable. Of
  /// entries of one key the last one counts.
  [[nodiscard]] static std::optional<RecordMap> decode(const simdjson::padded_string& text) {
    RecordMap map;
    const auto readEntry = [&map](std::string_view key, ondemand::value& value) {
      ondemand::object object;
      return !value.get_object().get(object) && Json::read(object, map.blankAt(key));
    };
    const bool readable =
        readDocument(text, [&](ondemand::object& object) { return readMap(object, readEntry); });
    if (!readable) return std::nullopt;
    return map;
  }

  /// Makes sure that every entry is encoded. False when some record has no JSON form.
  [[nodiscard]] bool encodeAll() {
    if (unencoded_ == 0) return true;
    for (auto& entry : entries_) {
      if (entry.json.empty()) encode(entry);
    }
    return unencoded_ == 0;
  }

  /// Writes the map as one JSON object with `append(text)`, which answers whether to go on.
  /// `encodeAll` must have succeeded since the last change.
  template <class Append>
  [[nodiscard]] bool write(Append&& append) const {
    if (!append("{")) return false;
    std::size_t comma = 1;
    for (const auto& entry : entries_) {
      if (!append(std::string_view(entry.json).substr(std::exchange(comma, 0)))) return false;
    }
    return append("}");
  }

 private:
  struct Entry {
    std::string key;
    Record record;
    std::string json;  ///< A comma, then key and record as they stand in the file; or empty.
  };

  Entry& add(std::string_view key, Record record) {
    Entry& entry = entries_.emplace_back(std::string(key), std::move(record), std::string());
    index_.emplace(entry.key, &entry);
    ++unencoded_;
    return entry;
  }

  Record& blankAt(std::string_view key) {
    const auto found = index_.find(key);
    if (found == index_.end()) return add(key, Json::blank()).record;
    return found->second->record = Json::blank();
  }

  void renew(Entry& entry) {
    forget(entry);
    entry.json.clear();
    ++unencoded_;
    encode(entry);
  }

  void forget(const Entry& entry) {
    if (entry.json.empty()) --unencoded_;
  }

  void encode(Entry& entry) {
    JsonWriter writer;
    writer.beginObject();
    writer.name(entry.key);
    if (!Json::write(writer, entry.record)) return;
    writer.endObject();
    const auto text = writer.text();
    entry.json.assign(",").append(text.substr(1, text.size() - 2));
    --unencoded_;
  }

  std::deque<Entry> entries_;  ///< Never moves an entry, so that the index can point to it.
  boost::unordered_flat_map<std::string_view, Entry*, std::hash<std::string_view>> index_;
  std::size_t unencoded_ = 0;  ///< How many entries have no `json`.
};

}  // namespace orvane::internal
