#include "Records.h"

#include <orvane/bookkeeping/UploadStore.h>

namespace backup {

bool RecordSaver::saveIfDue() {
  if (changed_.empty() || Clock::now() < due_) return false;
  save();
  return true;
}

void RecordSaver::save() {
  if (changed_.empty()) return;
  const auto begun = Clock::now();
  auto& store = orvane::UploadStore::shared();
  store.upsertBatch(std::exchange(changed_, {}));
  // The store works in order: its answer means that the change is in the file.
  static_cast<void>(store.completedCount());
  const auto saved = Clock::now();
  due_ = saved + 9 * (saved - begun);
}

}  // namespace backup
