// What reading an answer of a listing costs, against `memchr` looking once at each of its bytes.

#include <orvane/transport/Listing.h>

#include <orvane/platform/base/Utf8.h>

#include "Ratio.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using orvane::transport::parseKeyETagPairs;
using orvane::transport::parseToken;

/// An answer with 1000 entries as stores write it.
std::string page() {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ListBucketResult "
      "xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><Name>photos</Name><Prefix>media/</Prefix>"
      "<MaxKeys>1000</MaxKeys><IsTruncated>true</IsTruncated>"
      "<NextContinuationToken>media/2024/08/IMG_1999.HEIC</NextContinuationToken>";
  for (int number = 1000; number < 2000; ++number) {
    std::array<char, 512> entry{};
    std::snprintf(entry.data(), entry.size(),
                  "<Contents><Key>media/2024/08/8C1F4B3D-4C5E-9F10/IMG_%d.HEIC</Key>"
                  "<LastModified>2024-08-01T10:00:00.000Z</LastModified>"
                  "<ETag>&quot;9b2cf535f27731c974343645a398%d&quot;</ETag><Size>2048576</Size>"
                  "<StorageClass>STANDARD</StorageClass><Owner><ID>test</ID>"
                  "<DisplayName>test</DisplayName></Owner><Type>Normal</Type></Contents>",
                  number, number);
    text += entry.data();
  }
  return text + "</ListBucketResult>";
}

void scan(const std::string& text) {
  if (!orvane::platform::isUtf8(text)) std::abort();
  benchmark::DoNotOptimize(parseKeyETagPairs(text));
  benchmark::DoNotOptimize(parseToken(text));
}

/// `rounds` times each, so that the clock can tell.
void compare(benchmark::State& state, const std::string& text, int rounds) {
  orvane::benchmarks::Ratio ratio(state);
  for (auto _ : state) {
    ratio.engine([&] {
      for (int i = 0; i < rounds; ++i) scan(text);
    });
    ratio.floor([&] {
      for (int i = 0; i < rounds; ++i) {
        benchmark::DoNotOptimize(std::memchr(text.data(), '\0', text.size()));
        benchmark::ClobberMemory();
      }
    });
  }
  ratio.report();
  state.counters["bytes"] = static_cast<double>(text.size());
  state.SetBytesProcessed(state.iterations() * rounds * static_cast<std::int64_t>(text.size()));
}

void ThousandEntries(benchmark::State& state) {
  const auto text = page();
  if (parseKeyETagPairs(text).size() != 1000 || !parseToken(text)) std::abort();
  compare(state, text, 100);
}
BENCHMARK(ThousandEntries)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Answers of 10 MB made to be slow: `start`, `repeated` many times, `end`.
void Malicious(benchmark::State& state, const char* start, const char* repeated, const char* end) {
  std::string text = start;
  while (text.size() < 10'000'000) text += repeated;
  compare(state, text + end, 1);
}
#define ORVANE_MALICIOUS(name, start, repeated, end)       \
  BENCHMARK_CAPTURE(Malicious, name, start, repeated, end) \
      ->UseManualTime()                                    \
      ->Unit(benchmark::kMillisecond)
ORVANE_MALICIOUS(openings, "", "<", "");
ORVANE_MALICIOUS(unclosedEntries, "", "<Contents>", "");
ORVANE_MALICIOUS(emptyEntries, "", "<Contents></Contents>", "");
ORVANE_MALICIOUS(unclosedKeys, "<Contents>", "<Key>", "</Contents>");
ORVANE_MALICIOUS(linesOfKeys, "<Contents>", "<Key>\n", "</Key></Contents>");
ORVANE_MALICIOUS(brokenKeys, "<Contents>", "<Key>\n</Key>", "</Contents>");
ORVANE_MALICIOUS(notAscii, "<Contents><Key>", "\u2027", "</Key></Contents>");
ORVANE_MALICIOUS(unclosedTokens, "", "<NextContinuationToken>", "");
ORVANE_MALICIOUS(brokenTokens, "", "<NextContinuationToken>\n</NextContinuationToken>", "");
#undef ORVANE_MALICIOUS

}  // namespace
