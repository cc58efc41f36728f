#pragma once

#include <orvane/platform/host/SystemLog.h>

#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::testing {

/// Takes the lines of the system log as long as it lives.
class LogLines {
 public:
  LogLines() {
    SystemLog::setSink([this](std::string_view line) {
      const std::lock_guard lock(mutex_);
      lines_.emplace_back(line);
    });
  }
  ~LogLines() { SystemLog::setSink({}); }
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;

  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

  /// The lines since the last call.
  [[nodiscard]] std::vector<std::string> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace orvane::testing
