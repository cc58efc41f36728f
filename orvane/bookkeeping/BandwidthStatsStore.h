#pragma once

#include <orvane/bookkeeping/BandwidthSample.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

namespace orvane {

/// Remembers how much was transferred, and how fast lately, across restarts of the process. The
/// engine's uploaders do not report here; the host does.
///
/// Both figures are kept in memory and in the user's `Preferences`, which are read only when a
/// store is made. Every change is on the disk when it returns, and whatever changes are made at the
/// same time, what is stored in the end is what this store holds. Nothing reports a failure.
///
/// Threads: any thread may call anything. Of two processes that keep their own figures, the total
/// and the samples of the one that writes last are those stored. A child that was forked without
/// exec must not call anything.
///
///     auto& statistics = BandwidthStatsStore::shared();
///     statistics.addCompletedBytes(2'048'576);
///     statistics.addSample(2'048'576 / seconds);
class BandwidthStatsStore {
 public:
  /// The preference that holds the total, an integer.
  static constexpr std::string_view totalBytesKey = "bandwidth_total_bytes_v1";
  /// The preference that holds the samples: bytes, a JSON array.
  static constexpr std::string_view samplesKey = "bandwidth_samples_v1";
  /// How many samples are kept.
  static constexpr std::int64_t maxSamples = 60;

  /// The one store of the process, unless the host makes others. The first call blocks on the disk.
  [[nodiscard]] static BandwidthStatsStore& shared();

  /// A store with what the preferences hold; blocks on the disk. All stores use the same
  /// preferences, and none sees what another one writes later. Samples that cannot be decoded count
  /// as none, and stay stored until the next one is added. Where the preferences cannot be read
  /// (another process holds the file for more than 10 seconds), the figures begin at nothing, and
  /// those stored are added at a later change at which they can; until then nothing is stored.
  BandwidthStatsStore();

  BandwidthStatsStore(const BandwidthStatsStore&) = delete;
  BandwidthStatsStore& operator=(const BandwidthStatsStore&) = delete;

  /// Bytes transferred in all. Does not block on the disk.
  [[nodiscard]] std::int64_t totalBytesTransferred() const;

  /// The samples kept, oldest first. Does not block on the disk.
  [[nodiscard]] std::vector<BandwidthSample> samples() const;

  /// Adds bytes to the total (a negative count takes away), which stays at the end of its range
  /// rather than leave it. Blocks.
  void addCompletedBytes(std::int64_t count);

  /// Adds a sample of this moment and drops the oldest beyond `maxSamples`. Blocks. As long as one
  /// that is not a finite number is among them, the samples are kept in memory only.
  void addSample(double bytesPerSecond);

  /// Sets the total to 0 and drops every sample. Blocks.
  void reset();

 private:
  /// Adds what is stored to the figures. False where that cannot be told.
  [[nodiscard]] bool load();
  /// Whether the figures hold what is stored; loads it if they do not yet.
  [[nodiscard]] bool mayStore();
  void storeTotal();
  void storeSamples();
  /// Call with `lock_` held.
  void dropOldest();

  using Clock = std::chrono::steady_clock;

  mutable std::mutex lock_;  ///< Guards the figures; never held while something is written.
  bool isLoaded_ = false;
  std::int64_t totalBytesTransferred_ = 0;
  std::vector<BandwidthSample> samples_;

  /// Held from taking a figure to the end of writing it, so that the last writer has the last word.
  std::mutex writing_;
  /// After a failure that took seconds the preferences are left alone for as long again: a file
  /// that another process holds does not delay each change anew. Guarded by `writing_`.
  Clock::time_point loadAgainAt_;
};

}  // namespace orvane
