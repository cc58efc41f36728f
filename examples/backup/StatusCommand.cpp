#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/tagging/TagDatabase.h>

#include "Commands.h"
#include "Display.h"
#include "Setup.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <map>

namespace backup {
namespace {

void showRecords() {
  std::map<orvane::UploadStatus, std::size_t> counts;
  for (const auto& record : orvane::UploadStore::shared().allRecords()) ++counts[record.status];
  for (const auto& [status, count] : counts) {
    std::cout << uploadStatusText(status) << ": " << count << '\n';
  }
  if (counts.empty()) std::cout << "no records yet\n";
}

void showUploadsInParts() {
  for (const auto& state : orvane::MultipartUploadStore::shared().allStates()) {
    std::cout << "in parts: " << printable(state.assetId()) << ", " << state.completedParts.size()
              << " of " << state.totalParts() << " parts sent\n";
  }
}

void showPhotos() {
  const auto progress = valueOf(openTags().getBackfillProgress());
  if (!progress) return;
  std::cout << "looked at: " << progress->processed << " of " << countText(progress->total, "photo")
            << '\n';
}

/// One block for each throughput sample, the highest for the fastest.
void showBandwidth() {
  constexpr std::array kBlocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  auto& statistics = orvane::BandwidthStatsStore::shared();
  const auto samples = statistics.samples();
  if (samples.empty()) return;
  const double most =
      std::ranges::max(samples, {}, &orvane::BandwidthSample::bytesPerSecond).bytesPerSecond();
  std::cout << "transferred: " << byteText(statistics.totalBytesTransferred()) << ", lately ";
  for (const auto& sample : samples) {
    const double part = most > 0 ? sample.bytesPerSecond() / most : 0;
    std::cout << kBlocks.at(static_cast<std::size_t>(part * (kBlocks.size() - 1)));
  }
  std::cout << " (at most " << byteText(static_cast<std::int64_t>(most)) << "/s)\n";
}

}  // namespace

int statusCommand() {
  showRecords();
  showUploadsInParts();
  showPhotos();
  showBandwidth();
  return kSuccess;
}

}  // namespace backup
