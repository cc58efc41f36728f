#include <orvane/bookkeeping/UploadStore.h>

#include <orvane/bookkeeping/internal/RecordStore.h>
#include <orvane/bookkeeping/internal/UploadRecordJson.h>

#include <utility>

namespace orvane {
namespace {

using Store = bookkeeping::RecordStore<UploadRecord, bookkeeping::UploadRecordJson>;
using Records = Store::Records;

bool isFailed(const UploadRecord& record) { return record.status == UploadStatus::failed; }

void makePending(UploadRecord& record) {
  record.status = UploadStatus::pending;
  record.errorMessage.reset();
}

}  // namespace

struct UploadStore::Implementation {
  Store store{".upload-store", "upload_records_v1.json"};
};

UploadStore::UploadStore() : implementation_(std::make_unique<Implementation>()) {}

UploadStore::~UploadStore() = default;

UploadStore& UploadStore::shared() {
  // Never destroyed: other static objects of the host may still call it while the process exits.
  static auto& instance = *new UploadStore;
  [[maybe_unused]] static const bool drains = instance.implementation_->store.drainAtExit();
  return instance;
}

std::optional<UploadRecord> UploadStore::record(std::string_view assetId) {
  return implementation_->store.copyOf(assetId);
}

std::vector<UploadRecord> UploadStore::allRecords() {
  return implementation_->store.copiesIf([](const UploadRecord&) { return true; });
}

void UploadStore::upsert(UploadRecord record) {
  implementation_->store.change([record = std::move(record)](Records& records) mutable {
    const std::string id = record.id();
    records.put(id, std::move(record));
  });
}

void UploadStore::upsertBatch(std::vector<UploadRecord> batch) {
  implementation_->store.change([batch = std::move(batch)](Records& records) mutable {
    for (auto& record : batch) {
      const std::string id = record.id();
      records.put(id, std::move(record));
    }
  });
}

std::size_t UploadStore::completedCount() { return countOf(UploadStatus::completed); }

std::vector<UploadRecord> UploadStore::failedRecords() {
  return implementation_->store.copiesIf(isFailed);
}

std::size_t UploadStore::retryingCount() { return countOf(UploadStatus::retrying); }

std::size_t UploadStore::excludedCount() { return countOf(UploadStatus::excluded); }

void UploadStore::resetFailed() {
  implementation_->store.change([](Records& records) {
    records.updateIf(isFailed, [](UploadRecord& record) {
      makePending(record);
      record.retryCount = 0;
    });
  });
}

void UploadStore::autoResetFailed(std::int64_t maxRetries) {
  implementation_->store.change([maxRetries](Records& records) {
    records.updateIf(
        [maxRetries](const UploadRecord& record) {
          return isFailed(record) && record.retryCount < maxRetries;
        },
        makePending);
  });
}

void UploadStore::markExcluded(std::string assetId) {
  implementation_->store.change([assetId = std::move(assetId)](Records& records) {
    return records.update(assetId, [](UploadRecord& record) {
      record.status = UploadStatus::excluded;
      record.errorMessage.reset();
    });
  });
}

void UploadStore::resetTagsVersion() {
  implementation_->store.change([](Records& records) {
    records.updateIf([](const UploadRecord& record) { return record.tagsVersion != 0; },
                     [](UploadRecord& record) { record.tagsVersion = 0; });
  });
}

void UploadStore::markAllPendingAsStale() {
  implementation_->store.change([](Records& records) {
    records.updateIf(
        [](const UploadRecord& record) {
          return record.status == UploadStatus::uploading ||
                 record.status == UploadStatus::retrying;
        },
        [](UploadRecord& record) { record.status = UploadStatus::pending; });
  });
}

void UploadStore::clearAll() {
  implementation_->store.change([](Records& records) { records.clear(); });
}

void UploadStore::resetForTesting() { implementation_->store.reset(); }

std::size_t UploadStore::countOf(UploadStatus status) {
  return implementation_->store.read([status](const Records& records) {
    std::size_t count = 0;
    records.forEach([&](const UploadRecord& record) { count += record.status == status; });
    return count;
  });
}

}  // namespace orvane
