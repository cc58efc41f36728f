#include "support/ChildProcess.h"

#include "support/OtherUser.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <map>
#include <stdexcept>

extern char** environ;  // NOLINT(readability-redundant-declaration): glibc declares it for GNU only

namespace orvane::testing {
namespace {

constexpr const char* kChildFlag = "--child";

std::map<std::string, ChildMain::Function>& childMains() {
  static std::map<std::string, ChildMain::Function> mains;
  return mains;
}

}  // namespace

ChildMain::ChildMain(const std::string& name, Function function) {
  childMains()[name] = std::move(function);
}

std::optional<int> runAsChild(int argc, char** argv) {
  if (argc < 3 || std::string(argv[1]) != kChildFlag) return std::nullopt;
  OtherUser::becomeIfAsked();
  return childMains().at(argv[2])(std::vector<std::string>(argv + 3, argv + argc));
}

ChildProcess ChildProcess::run(const std::string& childMain, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"/proc/self/exe", kChildFlag, childMain});
  return start(arguments);
}

ChildProcess ChildProcess::start(const std::vector<std::string>& command) {
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  pid_t pid = -1;
  const int failed = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe[1]);
  if (failed != 0) {
    close(pipe[0]);
    throw std::runtime_error("cannot start " + command[0]);
  }
  return {pid, pipe[0]};
}

ChildProcess::~ChildProcess() {
  if (pid_ <= 0) return;
  kill(SIGKILL);
  wait();
}

void ChildProcess::kill(int signal) const {
  if (pid_ > 0) ::kill(pid_, signal);
}

std::optional<std::string> ChildProcess::readLine() {
  std::string line;
  for (int c = std::getc(output_.get()); c != EOF; c = std::getc(output_.get())) {
    if (c == '\n') return line;
    line.push_back(static_cast<char>(c));
  }
  return std::nullopt;
}

std::string ChildProcess::readAll() {
  std::string text;
  for (int c = std::getc(output_.get()); c != EOF; c = std::getc(output_.get())) {
    text.push_back(static_cast<char>(c));
  }
  return text;
}

int ChildProcess::wait() {
  int status = 0;
  if (waitpid(std::exchange(pid_, -1), &status, 0) < 0) throw std::runtime_error("waitpid");
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string outputOfChild(const std::string& childMain, std::vector<std::string> arguments) {
  auto child = ChildProcess::run(childMain, std::move(arguments));
  std::string output = child.readAll();
  if (const int status = child.wait(); status != 0) {
    throw std::runtime_error(childMain + " ended with " + std::to_string(status));
  }
  return output;
}

}  // namespace orvane::testing
