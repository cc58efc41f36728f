#include <orvane/platform/host/SystemLog.h>

#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/host/HostApplication.h>

#include <syslog.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace orvane {
namespace {

struct State {
  std::mutex mutex;
  std::shared_ptr<const SystemLog::Sink> sink;
};

State& state() {
  // Never destroyed: threads may still write while the process exits.
  static auto& instance = *new State;
  return instance;
}

void writeToSyslog(const std::string& line) {
  [[maybe_unused]] static const bool opened = [] {
    // The name is kept by reference; the identifier lives as long as the process.
    openlog(HostApplication::identifier().c_str(), LOG_PID, LOG_USER);
    return true;
  }();
  syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
}

bool isControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; }

/// Well-formed UTF-8 without controls (C0, C1) and without the separators of lines.
std::string oneLine(std::string_view line) {
  std::string text = platform::repairedUtf8(line);
  std::ranges::replace_if(text, isControl, ' ');
  for (std::size_t at = 0; (at = text.find_first_of("\xC2\xE2", at)) != std::string::npos; ++at) {
    const auto rest = std::string_view(text).substr(at);
    if (rest[0] == '\xC2' && static_cast<unsigned char>(rest[1]) < 0xA0) text.replace(at, 2, " ");
    if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
      text.replace(at, 3, " ");
    }
  }
  return text;
}

}  // namespace

void SystemLog::write(std::string_view line) {
  const std::string text = oneLine(line);
  std::unique_lock lock(state().mutex);
  const auto sink = state().sink;
  lock.unlock();
  if (!sink) return writeToSyslog(text);
  try {
    (*sink)(text);
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere left to say so.
  }
}

void SystemLog::setSink(Sink sink) {
  auto replacement = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const std::lock_guard lock(state().mutex);
  state().sink.swap(replacement);
}

}  // namespace orvane
