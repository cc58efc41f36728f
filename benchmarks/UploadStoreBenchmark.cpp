// What the upload store costs with 100,000 records, each against its floor in the same run: a
// change against writing the same bytes durably, and loading against walking the same JSON.

#include <orvane/bookkeeping/UploadStore.h>

#include <orvane/bookkeeping/internal/RecordStore.h>
#include <orvane/bookkeeping/internal/UploadRecordJson.h>
#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/platform/host/HostApplication.h>

#include "DataFolder.h"
#include "Ratio.h"

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using benchmarks::assetIdOf;
using benchmarks::median;
using benchmarks::require;

constexpr int kRecords = 100'000;

UploadRecord recordOf(int number) {
  UploadRecord record(assetIdOf(number), "media/IMG_" + std::to_string(number) + ".HEIC",
                      UploadStatus::completed, 2'048'576 + number, 2'048'576 + number);
  record.creationDate = Date{700'000'000.125 + number * 61.5};
  record.thumbnailUploaded = true;
  record.eTag = "\"9b2cf535f27731c974343645a398" + std::to_string(1000 + number % 9000) + "\"";
  record.tags = {"spiaggia", "mare"};
  record.tagsVersion = 1;
  return record;
}

/// The file of a store of `kRecords` records, in a data folder of the process's own.
const fs::path& recordFile() {
  static const benchmarks::DataFolder folder;
  static const auto file = [] {
    auto path = HostApplication::applicationSupportDirectory().value() / "upload_records_v1.json";
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    for (int i = 0; i < kRecords; ++i) {
      out << (i == 0 ? '{' : ',') << '"' << assetIdOf(i)
          << "\":" << recordOf(i).encodeJson().value();
    }
    out << '}';
    return path;
  }();
  return file;
}

using Clock = std::chrono::steady_clock;

template <class Work>
double secondsOf(Work&& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The same in a process of its own, whose memory is as fresh as that of a program that starts.
template <class Work>
double secondsInChild(Work&& work) {
  std::array<int, 2> channel{};
  require(pipe(channel.data()) == 0, "pipe");
  const platform::FileDescriptor input(channel[0]);
  platform::FileDescriptor output(channel[1]);
  const pid_t child = fork();
  if (child == 0) {
    const double seconds = secondsOf(work);
    _exit(write(output.get(), &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  output.close();
  double seconds = 0;
  const auto count = read(input.get(), &seconds, sizeof seconds);
  waitpid(child, nullptr, 0);
  require(count == sizeof seconds, "the child failed");
  return seconds;
}

/// Write, sync, rename, sync of the folder: what no durable replacement can do without.
void replaceDurably(const fs::path& target, std::string_view content) {
  const auto temporary = target.string() + ".floor";
  const platform::FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
  while (!content.empty()) {
    const auto count = write(file.get(), content.data(), content.size());
    require(count >= 0, "write");
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  const platform::FileDescriptor folder(open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY));
  if (fsync(file.get()) != 0 || rename(temporary.c_str(), target.c_str()) != 0 ||
      fsync(folder.get()) != 0) {
    throw std::runtime_error("replace");
  }
}

void changeOneRecord(benchmark::State& state) {
  const auto& file = recordFile();
  auto& store = UploadStore::shared();
  const auto change = [&](int number) {
    auto record = recordOf(number);
    record.retryCount = 1;
    store.upsert(record);
    benchmark::DoNotOptimize(store.record(record.id()));
  };
  const auto first = secondsOf([&] { change(0); });

  const auto content =
      static_cast<std::string>(simdjson::padded_string::load(file.string()).value());
  std::vector<double> changes;
  std::vector<double> floors;
  for (auto _ : state) {
    const int number = static_cast<int>(changes.size() * 7919 % kRecords);
    changes.push_back(secondsOf([&] { change(number); }));
    floors.push_back(secondsOf([&] { replaceDurably(file.string() + ".other", content); }));
    state.SetIterationTime(changes.back());
  }
  state.counters["bytes"] = static_cast<double>(content.size());
  state.counters["first_ms"] = 1000 * first;
  state.counters["change_ms"] = 1000 * median(changes);
  state.counters["floor_ms"] = 1000 * median(floors);
  state.counters["ratio"] = median(changes) / median(floors);
}

// What a reader of every value has to do at least.
std::size_t walk(simdjson::ondemand::value value) {
  namespace ondemand = simdjson::ondemand;
  std::size_t sum = 0;
  switch (value.type()) {
    case simdjson::ondemand::json_type::object:
      for (auto field : value.get_object())
        sum += field.unescaped_key().value().size() + walk(field.value());
      break;
    case simdjson::ondemand::json_type::array:
      for (auto element : value.get_array()) sum += walk(element.value());
      break;
    case simdjson::ondemand::json_type::string:
      sum += value.get_string().value().size();
      break;
    case simdjson::ondemand::json_type::number:
      sum += static_cast<std::size_t>(value.get_number().value().as_double());
      break;
    case simdjson::ondemand::json_type::boolean:
      sum += std::size_t{value.get_bool().value()};
      break;
    case simdjson::ondemand::json_type::null:
      break;
  }
  return sum;
}

void walkAll(const simdjson::padded_string& text) {
  simdjson::ondemand::parser parser;
  auto document = parser.iterate(text);
  benchmark::DoNotOptimize(walk(document.get_value().value()));
}

void load(benchmark::State& state) {
  const auto path = recordFile().string();
  const simdjson::padded_string text = simdjson::padded_string::load(path).value();
  std::vector<double> loads;
  std::vector<double> walks;
  std::vector<double> readsAndWalks;
  for (auto _ : state) {
    loads.push_back(secondsInChild([] {
      using Store = bookkeeping::RecordStore<UploadRecord, bookkeeping::UploadRecordJson>;
      auto& store = *new Store(".benchmark", "upload_records_v1.json");
      if (store.read([](const auto& records) { return records.size(); }) != kRecords) std::abort();
    }));
    walks.push_back(secondsInChild([&] { walkAll(text); }));
    readsAndWalks.push_back(
        secondsInChild([&] { walkAll(simdjson::padded_string::load(path).value()); }));
    state.SetIterationTime(loads.back());
  }
  state.counters["bytes"] = static_cast<double>(text.size());
  state.counters["load_ms"] = 1000 * median(loads);
  state.counters["walk_ms"] = 1000 * median(walks);
  state.counters["read_and_walk_ms"] = 1000 * median(readsAndWalks);
  state.counters["ratio_to_walk"] = median(loads) / median(walks);
  state.counters["ratio_to_read_and_walk"] = median(loads) / median(readsAndWalks);
}

BENCHMARK(load)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(15);
BENCHMARK(changeOneRecord)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(15);

}  // namespace
}  // namespace orvane
