#pragma once

#include <orvane/bookkeeping/MultipartState.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// Remembers the state of unfinished multipart uploads across restarts of the process. The engine
/// neither fills nor reads it: what an upload has reached is the host's to save and to remove.
///
/// A map from asset identifier to state, kept in memory and in the file
/// "multipart_upload_states_v1.json" of the application-support folder. Changes, failures,
/// threads, processes and the exit are as with `UploadStore`: changes return at once and each one
/// rewrites the file as a whole; nothing reports a failure, a file with any unreadable part makes
/// an empty store and is kept beside as "multipart_upload_states_v1.json.undecodable"; any thread
/// may call anything, and an operation that reads waits for the changes queued before it. What is
/// returned is a copy.
///
///     auto& store = MultipartUploadStore::shared();
///     store.save(state);
///     auto same = store.state(state.assetId());
class MultipartUploadStore {
 public:
  /// The one store of the process. The first call reads the file and blocks meanwhile.
  [[nodiscard]] static MultipartUploadStore& shared();

  MultipartUploadStore(const MultipartUploadStore&) = delete;
  MultipartUploadStore& operator=(const MultipartUploadStore&) = delete;

  /// The state filed under an asset identifier. Blocks.
  [[nodiscard]] std::optional<MultipartState> state(std::string_view assetId);

  /// Files `state` under its `assetId`, in place of an earlier one as a whole. Queued.
  void save(MultipartState state);

  /// Removes the state filed under an asset identifier. Writes also when there is none. Queued.
  void remove(std::string assetId);

  /// Removes every state; the file then holds an empty map. Queued.
  void removeAll();

  /// Every state, in no particular order. Blocks.
  [[nodiscard]] std::vector<MultipartState> allStates();

  /// Removes every state and deletes the file. Blocks.
  void resetForTesting();

 private:
  struct Implementation;

  MultipartUploadStore();
  ~MultipartUploadStore();

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace orvane
