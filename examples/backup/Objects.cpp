#include "Objects.h"

#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/transport/TalvexAPIService.h>
#include <orvane/transport/XmlText.h>

#include "Display.h"
#include "Rules.h"

#include <iostream>
#include <utility>

namespace backup {

using orvane::UploadRecord;
using orvane::UploadStore;

orvane::Result<std::map<std::string, std::string>> listObjects(const orvane::S3Config& config) {
  auto listed = orvane::TalvexAPIService::shared().listObjects(config, config.prefix);
  if (!listed) return std::unexpected(std::move(listed.error()));
  std::map<std::string, std::string> objects;
  for (auto& [key, eTag] : *listed) {
    // Keys are listed as they stand in the answer, which is XML.
    const std::string name = orvane::withoutXmlReferences(key);
    if (name.starts_with(config.prefix)) {
      objects.emplace(name.substr(config.prefix.size()), std::move(eTag));
    }
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
    std::cerr << "The ETags are not known yet: " << printable(explanation(objects.error())) << '\n';
    return;
  }
  for (UploadRecord& record : records) {
    const auto object = objects->find(record.filename());
    if (object != objects->end()) record.eTag = object->second;
  }
  UploadStore::shared().upsertBatch(std::move(records));
}

}  // namespace backup
