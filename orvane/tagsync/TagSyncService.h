#pragma once

#include <orvane/Async.h>
#include <orvane/transport/S3Config.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

class TagDatabase;

namespace tagsync {
struct RemoteTagFile;
}

/// What an upload of tags has put into the bucket.
struct TagUpload {
  std::int64_t byteOffset = 0;  ///< Size of the object in bytes; 0 when there was nothing to send.
  std::string eTag;             ///< The object's ETag without quotes; may be empty.
  std::int64_t tagCount = 0;    ///< Assets (not tags) that were read, also those left out.
};

/// Shares tags between a user's devices through the bucket that holds the backup.
///
/// Each device puts all tags of its own as one object, `prefix` + "tags/" + its identifier +
/// "/tags.jsonl", and reads those of the others. An asset is the same one on two devices when both
/// name the same object of the bucket in its upload record.
///
/// The operations are coroutines. While they wait for the network they block no thread; their work
/// on the tag database and the upload store, which takes seconds for hundreds of thousands of tags,
/// blocks the thread that runs them. Tags are written in transactions that end after 25 ms, so that
/// each keeps other users of the database waiting for about 50 ms, unless the disk is slow or a
/// single tag takes longer. A lock that another process holds for seconds costs a tag for every 3
/// of them, and ever more after 12. The configuration's prefix may hold ASCII letters, digits and
/// "-._~/" only.
///
/// The executor must outlive the operation. Cancelling it ends the transfer under way with the code
/// cancelled (-999); what has been written stays. The host must have called
/// `TagDatabase::initialize`; until then an upload finds no tags, and downloads count tags without
/// keeping them.
///
/// Any thread may start any number of operations. Each logs what it does to the `SystemLog`.
///
///     auto applied = co_await TagSyncService::shared().downloadAllRemoteTags(config);
class TagSyncService {
 public:
  /// The one service of the process. The first call reads the device's identifier, which may
  /// block; a later change of it is not seen.
  [[nodiscard]] static TagSyncService& shared();

  TagSyncService(const TagSyncService&) = delete;
  TagSyncService& operator=(const TagSyncService&) = delete;

  /// Replaces this device's tag object by all of its tags. Sends nothing when there are none.
  ///
  /// After the database was lost, that object is the only copy of the tags: call
  /// `downloadTagsFromS3` first, since any tag that was found meanwhile would replace them all.
  ///
  /// Fails with the database's error when the tags cannot be read, and with the uploader's when
  /// they cannot be sent; the object is then as it was, unless only the answer was lost. An asset
  /// of which a text is not UTF-8 or a confidence infinite is left out.
  [[nodiscard]] Async<TagUpload> uploadTagsToS3(S3Config config);

  /// Reads this device's tag object back, for example after its database was lost: applies the
  /// records that are newer than the newest one applied before, and yields how many tags.
  ///
  /// Fails with `TagSyncError` when there is no object URL or the answer is not a success
  /// (`downloadFailed`) and when the object is not UTF-8 (`parseError`); with the HTTP client's
  /// errors, one of which (-1103) says that the object has more than 256 MiB; and with the
  /// database's when the time of the newest record cannot be read or written. Bad records and tags
  /// that cannot be written are passed over; the latter count as applied.
  [[nodiscard]] Async<std::int64_t> downloadTagsFromS3(S3Config config);

  /// Merges the tag objects of all other devices that have changed since they were last applied,
  /// and yields how many tags were applied. The tags of assets that no local upload record names
  /// are skipped; they come with the next change of their object. A tag of more than 1,024 bytes
  /// is not written, but counted. An object of which a lock of another process has cost tags is
  /// applied again by the next call.
  ///
  /// Fails when the devices cannot be listed: with `TagSyncError` (`downloadFailed`, `parseError`)
  /// or the HTTP client's errors. A device whose object cannot be read is passed over. Only the
  /// first 1000 objects of the listing are seen.
  [[nodiscard]] Async<std::int64_t> downloadAllRemoteTags(S3Config config);

 private:
  TagSyncService();

  /// The key of a device's tag object, without the configuration's prefix.
  [[nodiscard]] std::string keyOf(std::string_view uuid) const;

  [[nodiscard]] Async<std::vector<tagsync::RemoteTagFile>> listTagFiles(S3Config config) const;
  /// The whole object, or with `rangeEnd` the bytes from `rangeStart` to that, inclusive.
  [[nodiscard]] static Async<std::string> downloadFromS3(std::string key, std::int64_t rangeStart,
                                                         std::optional<std::int64_t> rangeEnd,
                                                         S3Config config);

  TagDatabase& tagDb_;
  const std::string deviceUUID_;
  const std::string tagsPrefix_ = "tags/";
};

}  // namespace orvane
