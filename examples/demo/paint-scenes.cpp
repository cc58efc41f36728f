// Paints scenes and what is easily mistaken for them.
//
// usage: paint-scenes FOLDER
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <span>
#include <string>

#include "support/SceneImages.h"
#include "support/TestImage.h"

namespace {

using orvane::testing::SceneKind;

void paintEach(std::span<const SceneKind> kinds, std::uint32_t variants,
               const std::filesystem::path& folder) {
  for (const SceneKind& kind : kinds) {
    for (std::uint32_t seed = 1; seed <= variants; ++seed) {
      std::string name = std::string(kind.name) + ' ' + std::to_string(seed) + ".png";
      std::ranges::replace(name, ' ', '-');
      orvane::testing::writeImage(folder / name, orvane::testing::paint(kind, seed));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: paint-scenes FOLDER\n";
    return 2;
  }
  paintEach(orvane::testing::scenes(), 2, argv[1]);
  paintEach(orvane::testing::distractors(), 1, argv[1]);
}
