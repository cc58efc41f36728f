#include "support/SecretService.h"

#include "support/TemporaryDirectory.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::testing {
namespace {

constexpr const char* kServiceName = "org.freedesktop.secrets";
constexpr const char* kDefaultCollection = "/org/freedesktop/secrets/aliases/default";

/// Starts a daemon that ends with this process, however that ends; its standard input is `input`,
/// its complaints go to a file in the test's folder.
ChildProcess startDaemon(const std::filesystem::path& input, std::vector<std::string> command) {
  const auto log = testDirectory() / (command.front() + ".log");
  command.insert(
      command.begin(),
      {"sh", "-c", R"(in=$1 log=$2; shift 2; exec setpriv --pdeathsig KILL "$@" <"$in" 2>"$log")",
       "sh", input.string(), log.string()});
  return ChildProcess::start(command);
}

ChildProcess startBus() {
  const auto config = testDirectory() / "bus.conf";
  const auto address = "unix:path=" + (testDirectory() / "bus").string();
  writeFile(config, "<busconfig><type>session</type><listen>" + address + "</listen><servicedir>" +
                        (testDirectory() / "services").string() +
                        R"(</servicedir>
      <policy context="default">
        <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
      </policy></busconfig>)");
  auto daemon = startDaemon("/dev/null", {"dbus-daemon", "--config-file=" + config.string(),
                                          "--nofork", "--nopidfile", "--print-address=1"});
  if (!daemon.readLine()) throw std::runtime_error("no message bus");
  setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  return daemon;
}

ChildProcess startKeyring() {
  const auto runtime = testDirectory() / "run";
  std::filesystem::create_directory(runtime);
  std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
  setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
  writeFile(testDirectory() / "password", "password");
  return startDaemon(testDirectory() / "password",
                     {"gnome-keyring-daemon", "--foreground", "--components=secrets", "--unlock"});
}

std::string gdbus(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "gdbus");
  auto tool = ChildProcess::start(arguments);
  auto output = tool.readAll();
  if (tool.wait() != 0) throw std::runtime_error("gdbus " + arguments[1] + " failed");
  return output;
}

std::string callService(const std::string& method, const std::string& argument) {
  return gdbus({"call", "--session", "--dest", kServiceName, "--object-path",
                "/org/freedesktop/secrets", "--method", "org.freedesktop.Secret.Service." + method,
                argument});
}

std::size_t count(std::string_view text, std::string_view word) {
  std::size_t found = 0;
  for (auto at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1))
    ++found;
  return found;
}

}  // namespace

SessionBus::SessionBus() : daemon_(startBus()) {}

SecretService::SecretService() { restart(); }

void SecretService::restart() {
  daemon_.reset();
  daemon_.emplace(startKeyring());
  gdbus({"wait", "--session", "--timeout", "60", kServiceName});
}

void SecretService::freeze() const { daemon_->kill(SIGSTOP); }

void SecretService::lock() {
  const std::string collection = kDefaultCollection;
  if (count(callService("Lock", "['" + collection + "']"), collection) != 1) {
    throw std::runtime_error("the collection cannot be locked");
  }
}

void SecretService::removeDefault() {
  gdbus({"call", "--session", "--dest", kServiceName, "--object-path", kDefaultCollection,
         "--method", "org.freedesktop.Secret.Collection.Delete"});
  if (count(callService("ReadAlias", "default"), "'/'") != 1) {
    throw std::runtime_error("the collection is still there");
  }
}

std::size_t SecretService::countItems(const std::string& account) {
  return count(callService("SearchItems", "{'account': '" + account + "'}"), "/collection/");
}

}  // namespace orvane::testing
