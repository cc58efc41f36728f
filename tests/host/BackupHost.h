#pragma once

#include "support/Test.h"

namespace orvane::testing {

struct Outcome {
  int status;
  std::string output;
};

/// Starts the program in the test's folder; standard error joins its output.
inline ChildProcess start(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"sh", "-c", "exec \"$@\" 2>&1", "sh", ORVANE_BACKUP};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return ChildProcess::start(command);
}

inline Outcome run(const std::vector<std::string>& arguments) {
  auto child = start(arguments);
  auto output = child.readAll();
  return {child.wait(), std::move(output)};
}

/// The example host as its user meets it: a program, a folder, a configuration file.
class BackupHostTest : public ::testing::Test {
 protected:
  BackupHostTest() { fs::create_directory(folder_); }

  void addFile(const std::string& name, std::string_view content) const {
    fs::create_directories((folder_ / name).parent_path());
    writeFile(folder_ / name, content);
  }

  void configure(const std::string& endpoint, const std::string& accessKey = "key",
                 const std::string& secretKey = "top-secret",
                 const std::string& prefix = "") const {
    writeFile(config_, R"({"bucket":"photos","region":"us-east-1","accessKey":")" + accessKey +
                           R"(","secretKey":")" + secretKey + R"(","prefix":")" + prefix +
                           R"(","endpoint":")" + endpoint + "\"}");
    fs::permissions(config_, fs::perms::owner_read | fs::perms::owner_write);
  }
  void configure(const ObjectStore& store) const {
    configure(store.endpoint(), store.accessKey(), store.secretKey(), store.prefix());
  }

  [[nodiscard]] std::vector<std::string> runArguments() const {
    return {"run", folder_, "--config", config_, "--state", state_};
  }
  [[nodiscard]] Outcome backUp() const { return run(runArguments()); }
  [[nodiscard]] static Outcome with(const fs::path& state, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--state", state});
    return run(arguments);
  }
  [[nodiscard]] Outcome withStore(const std::string& command, const fs::path& state) const {
    return with(state, {command, "--config", config_});
  }
  /// How many records are in which state.
  [[nodiscard]] std::string status() const {
    const auto output = run({"status", "--state", state_}).output;
    return output.substr(0, output.find("transferred: "));
  }

  /// As if each recorded file had been tried again so often.
  void setRetryCounts(int count) const {
    constexpr std::string_view kMember = "\"retryCount\":";
    auto text = readFile(records_);
    for (auto at = text.find(kMember); at != std::string::npos; at = text.find(kMember, at)) {
      at += kMember.size();
      text.replace(at, text.find(',', at) - at, std::to_string(count));
    }
    writeFile(records_, text);
  }

  const fs::path folder_ = testDirectory() / "folder";
  const fs::path config_ = testDirectory() / "config.json";
  const fs::path state_ = testDirectory() / "state";
  const fs::path records_ = state_ / "Application Support/upload_records_v1.json";
};

}  // namespace orvane::testing
