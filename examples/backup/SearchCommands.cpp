#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/tagging/TagDatabase.h>

#include "Commands.h"
#include "Display.h"
#include "Setup.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace backup {
namespace {

using orvane::TagWithConfidence;

constexpr std::size_t kTagColumns = 24;

/// The photo's tags, surest first; one that several devices have found counts as the surest does.
std::vector<TagWithConfidence> tagsOf(const std::string& photo) {
  std::map<std::string, double> surest;
  for (const auto& [tag, confidence] : valueOf(openTags().getTagsForAsset(photo))) {
    surest[tag] = std::max(surest[tag], std::clamp(confidence, 0.0, 1.0));
  }
  std::vector<TagWithConfidence> tags;
  tags.reserve(surest.size());
  for (const auto& [tag, confidence] : surest) tags.push_back({tag, confidence});
  std::ranges::stable_sort(tags, std::greater(), &TagWithConfidence::confidence);
  return tags;
}

}  // namespace

int searchCommand(const std::string& word) {
  auto photos = valueOf(openTags().searchAssetsByTag(word));
  std::ranges::sort(photos);
  for (const auto& photo : photos) {
    std::vector<std::string> names;
    for (const auto& [tag, confidence] : tagsOf(photo)) names.push_back(tag);
    std::cout << printable(photo) << ": " << listText(names) << '\n';
  }
  std::cout << countText(photos.size(), "photo") << '\n';
  return kSuccess;
}

int topCommand() {
  const auto tags = valueOf(openTags().topTags(20));
  for (const auto& [tag, count] : tags) {
    const double part = static_cast<double>(count) / static_cast<double>(tags.front().count);
    std::cout << padded(printable(tag), kTagColumns) << barText(part, 20) << ' ' << count << '\n';
  }
  if (tags.empty()) std::cout << "no tags yet\n";
  return kSuccess;
}

int tagsCommand(const std::string& photo) {
  const auto tags = tagsOf(photo);
  if (tags.empty() && !orvane::UploadStore::shared().record(photo)) {
    throw std::runtime_error("no such photo: " + printable(photo));
  }
  for (const auto& [tag, confidence] : tags) {
    std::cout << padded(printable(tag), kTagColumns) << barText(confidence, 20) << ' '
              << std::lround(100 * confidence) << "%\n";
  }
  if (tags.empty()) std::cout << "no tags\n";
  return kSuccess;
}

}  // namespace backup
