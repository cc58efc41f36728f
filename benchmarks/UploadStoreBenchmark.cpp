// What the upload store costs with 100,000 records, each against its floor in the same run: a
// change against writing the same bytes durably, and loading against walking the same JSON.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/bookkeeping/internal/RecordStore.h>
#include <orvane/bookkeeping/internal/UploadRecordJson.h>
#include <orvane/platform/FileDescriptor.h>
#include <orvane/platform/HostApplication.h>
#include <simdjson.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane {
namespace {

namespace fs = std::filesystem;

constexpr int kRecords = 100'000;

std::string idOf(int number) {
  std::array<char, 64> id{};
  std::snprintf(id.data(), id.size(), "8C1F%04X-4B3D-4C5E-9F10-2A3B%08X/L0/001", number & 0xffff,
                static_cast<unsigned>(number) * 2654435761U);
  return id.data();
}

UploadRecord recordOf(int number) {
  UploadRecord record(idOf(number), "media/IMG_" + std::to_string(number) + ".HEIC",
                      UploadStatus::completed, 2'048'576 + number, 2'048'576 + number);
  record.creationDate = Date{700'000'000.125 + number * 61.5};
  record.thumbnailUploaded = true;
  record.eTag = "\"9b2cf535f27731c974343645a398" + std::to_string(1000 + number % 9000) + "\"";
  record.tags = {"spiaggia", "mare"};
  record.tagsVersion = 1;
  return record;
}

/// A data folder of the process's own with a store of `kRecords` records.
struct Setting {
  fs::path data;
  fs::path file;

  Setting() {
    std::string name = (fs::temp_directory_path() / "orvane-benchmark-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    data = name;
    if (!HostApplication::configure({.dataDirectory = data})) throw std::runtime_error("configure");
    file = HostApplication::applicationSupportDirectory().value() / "upload_records_v1.json";
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    for (int i = 0; i < kRecords; ++i) {
      out << (i == 0 ? '{' : ',') << '"' << idOf(i) << "\":" << recordOf(i).encodeJson().value();
    }
    out << '}';
  }
  ~Setting() { fs::remove_all(data); }
};

const Setting& setting() {
  static const Setting instance;
  return instance;
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
  if (pipe(channel.data()) != 0) throw std::runtime_error("pipe");
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
  if (count != sizeof seconds) throw std::runtime_error("the child failed");
  return seconds;
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Write, sync, rename, sync of the folder: what no durable replacement can do without.
void replaceDurably(const fs::path& target, std::string_view content) {
  const auto temporary = target.string() + ".floor";
  const platform::FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
  while (!content.empty()) {
    const auto count = write(file.get(), content.data(), content.size());
    if (count < 0) throw std::runtime_error("write");
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  const platform::FileDescriptor folder(open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY));
  if (fsync(file.get()) != 0 || rename(temporary.c_str(), target.c_str()) != 0 ||
      fsync(folder.get()) != 0) {
    throw std::runtime_error("replace");
  }
}

void changeOneRecord(benchmark::State& state) {
  const auto& file = setting().file;
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
    case ondemand::json_type::object:
      for (auto field : value.get_object())
        sum += field.unescaped_key().value().size() + walk(field.value());
      break;
    case ondemand::json_type::array:
      for (auto element : value.get_array()) sum += walk(element.value());
      break;
    case ondemand::json_type::string:
      sum += value.get_string().value().size();
      break;
    case ondemand::json_type::number:
      sum += static_cast<std::size_t>(value.get_number().value().as_double());
      break;
    case ondemand::json_type::boolean:
      sum += std::size_t{value.get_bool().value()};
      break;
    case ondemand::json_type::null:
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
  const auto path = setting().file.string();
  const simdjson::padded_string text = simdjson::padded_string::load(path).value();
  std::vector<double> loads;
  std::vector<double> walks;
  std::vector<double> readsAndWalks;
  for (auto _ : state) {
    loads.push_back(secondsInChild([] {
      using Store = internal::RecordStore<UploadRecord, internal::UploadRecordJson>;
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
