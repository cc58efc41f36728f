#include <orvane/tagging/TagLocalization.h>

#include "Ratio.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using orvane::TagLocalization;

/// Labels of the table, each as often as the others, in an order that does not repeat.
template <class Text>
const std::vector<Text>& shuffledLabels() {
  static const auto labels = [] {
    std::vector<Text> all;
    std::mt19937 random(1);
    for (int round = 0; round < 100; ++round) {
      const auto first = static_cast<std::ptrdiff_t>(all.size());
      for (const auto& entry : TagLocalization::translations()) all.emplace_back(entry.label);
      std::shuffle(all.begin() + first, all.end(), random);
    }
    return all;
  }();
  return labels;
}

/// Naming labels of the table, against one find in an unordered_map from Text to Text that holds
/// the same, given the same labels as `Text`.
template <class Text>
void nameLabels(benchmark::State& state) {
  std::unordered_map<Text, Text> map;
  for (const auto& [label, name] : TagLocalization::translations()) map.emplace(label, name);
  const auto& labels = shuffledLabels<Text>();
  constexpr int kRounds = 10;

  orvane::benchmarks::Ratio ratio(state);
  for (auto _ : state) {
    ratio.engine([&] {
      for (int round = 0; round < kRounds; ++round) {
        for (const auto& label : labels) {
          benchmark::DoNotOptimize(TagLocalization::italianName(label)->data());
        }
      }
    });
    ratio.floor([&] {
      for (int round = 0; round < kRounds; ++round) {
        for (const auto& label : labels) benchmark::DoNotOptimize(map.find(label)->second.data());
      }
    });
  }
  ratio.report();
  // engine_ms and floor_ms are for so many lookups: about a million, so read them as nanoseconds.
  state.counters["lookups"] = static_cast<double>(labels.size() * kRounds);
}
BENCHMARK(nameLabels<std::string>)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(nameLabels<std::string_view>)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
