#include <orvane/bookkeeping/MultipartUploadStore.h>

#include <orvane/bookkeeping/internal/MultipartStateJson.h>
#include <orvane/bookkeeping/internal/RecordStore.h>

#include <utility>

namespace orvane {
namespace {

using Store = bookkeeping::RecordStore<MultipartState, bookkeeping::MultipartStateJson>;
using States = Store::Records;

}  // namespace

struct MultipartUploadStore::Implementation {
  Store store{".multipart-store", "multipart_upload_states_v1.json"};
};

MultipartUploadStore::MultipartUploadStore()
    : implementation_(std::make_unique<Implementation>()) {}

MultipartUploadStore::~MultipartUploadStore() = default;

MultipartUploadStore& MultipartUploadStore::shared() {
  // Never destroyed: other static objects of the host may still call it while the process exits.
  static auto& instance = *new MultipartUploadStore;
  [[maybe_unused]] static const bool drains = instance.implementation_->store.drainAtExit();
  return instance;
}

std::optional<MultipartState> MultipartUploadStore::state(std::string_view assetId) {
  return implementation_->store.copyOf(assetId);
}

void MultipartUploadStore::save(MultipartState state) {
  implementation_->store.change([state = std::move(state)](States& states) mutable {
    const std::string assetId = state.assetId();
    states.put(assetId, std::move(state));
  });
}

void MultipartUploadStore::remove(std::string assetId) {
  implementation_->store.change(
      [assetId = std::move(assetId)](States& states) { states.remove(assetId); });
}

void MultipartUploadStore::removeAll() {
  implementation_->store.change([](States& states) { states.clear(); });
}

std::vector<MultipartState> MultipartUploadStore::allStates() {
  return implementation_->store.copiesIf([](const MultipartState&) { return true; });
}

void MultipartUploadStore::resetForTesting() { implementation_->store.reset(); }

}  // namespace orvane
