#include "Objects.h"

#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/transport/TalvexAPIService.h>

#include <array>
#include <charconv>
#include <iostream>
#include <string_view>
#include <utility>

#include "Rules.h"

namespace backup {

using orvane::UploadRecord;
using orvane::UploadStore;

namespace {

constexpr std::array<std::pair<std::string_view, char>, 5> kEntities = {
    {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};

/// The character of "amp", "#38" or "#x26"; 0 for what is none of ASCII.
char characterOf(std::string_view entity) {
  for (const auto& [name, character] : kEntities) {
    if (entity == name) return character;
  }
  if (!entity.starts_with('#')) return 0;
  const bool hexadecimal = entity.substr(1).starts_with('x');
  entity.remove_prefix(hexadecimal ? 2 : 1);
  char code = 0;
  std::from_chars(entity.begin(), entity.end(), code, hexadecimal ? 16 : 10);
  return code;
}

/// Keys are listed as they stand in the answer, which is XML.
std::string decoded(std::string_view xml) {
  std::string text;
  while (!xml.empty()) {
    const std::size_t end = xml.front() == '&' ? xml.find(';') : std::string_view::npos;
    const char character =
        end == std::string_view::npos ? '\0' : characterOf(xml.substr(1, end - 1));
    text.push_back(character == 0 ? xml.front() : character);
    xml.remove_prefix(character == 0 ? 1 : end + 1);
  }
  return text;
}

}  // namespace

orvane::Result<std::map<std::string, std::string>> listObjects(const orvane::S3Config& config) {
  // Characters that mean something in a query would be sent as they are.
  const auto prefix = config.prefix.substr(0, config.prefix.find_first_of("&+;=#"));
  auto listed = orvane::TalvexAPIService::shared().listObjects(config, prefix);
  if (!listed) return std::unexpected(std::move(listed.error()));
  std::map<std::string, std::string> objects;
  for (auto& [key, eTag] : *listed) {
    const std::string name = decoded(key);
    if (!name.starts_with(config.prefix)) continue;
    objects.emplace(name.substr(config.prefix.size()), std::move(eTag));
  }
  return objects;
}

void recordETags(const orvane::S3Config& config) {
  auto records = UploadStore::shared().allRecords();
  std::erase_if(records, [](const UploadRecord& record) {
    return record.eTag || record.status != orvane::UploadStatus::completed;
  });
  if (records.empty()) return;
  const auto objects = listObjects(config);
  if (!objects) {
    std::cout << "The ETags are not known yet: " << explanation(objects.error()) << '\n';
    return;
  }
  for (UploadRecord& record : records) {
    const auto object = objects->find(record.filename());
    if (object != objects->end()) record.eTag = object->second;
  }
  UploadStore::shared().upsertBatch(std::move(records));
}

}  // namespace backup
