#pragma once

#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvane::testing {

/// Names a function that tests can run in a process of its own, where nothing of the engine has
/// been used yet. Its result is the process's exit status.
///
///     const ChildMain kReader("reader", [](const std::vector<std::string>& arguments) {...});
class ChildMain {
 public:
  using Function = std::function<int(const std::vector<std::string>& arguments)>;
  ChildMain(const std::string& name, Function function);
};

/// A running process, its standard output readable from here; killed when this object goes.
class ChildProcess {
 public:
  /// Starts the `ChildMain` of that name, in this test's folder.
  static ChildProcess run(const std::string& childMain, std::vector<std::string> arguments = {});
  /// Starts a program; `command[0]` is looked up in the path.
  static ChildProcess start(const std::vector<std::string>& command);

  ChildProcess(ChildProcess&& other) noexcept
      : pid_(std::exchange(other.pid_, -1)), output_(std::move(other.output_)) {}
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess();

  void kill(int signal) const;
  /// The next line of the output without its line feed; nothing at the end.
  std::optional<std::string> readLine();
  /// The rest of the output.
  std::string readAll();
  /// Waits for the end: the exit status, or the negative number of the signal that ended it.
  int wait();

 private:
  using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
  ChildProcess(pid_t pid, int output) : pid_(pid), output_(fdopen(output, "r"), std::fclose) {}

  pid_t pid_;
  Stream output_;
};

/// Runs the child to its end and returns its output; throws when its status is not 0.
std::string outputOfChild(const std::string& childMain, std::vector<std::string> arguments = {});

/// Used by main: the status of the child that the command line names, if it names one.
std::optional<int> runAsChild(int argc, char** argv);

}  // namespace orvane::testing
