#include "Setup.h"

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/files/FolderLock.h>
#include <orvane/platform/files/FolderOperations.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/Preferences.h>
#include <orvane/platform/secrets/SecretServiceStore.h>
#include <orvane/platform/vision/OnnxClassifier.h>
#include <orvane/tagging/TagDatabase.h>

#include "Commands.h"
#include "Display.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace backup {

namespace fs = std::filesystem;
using orvane::HostApplication;
using orvane::Preferences;
using orvane::S3Config;

namespace {

constexpr const char* kIdentifier = "org.orvane.backup";

constexpr auto kFolderKey = "backup_folder";
constexpr auto kDestinationKey = "backup_destination";

bool isWebAddress(const orvane::Url& url) {
  if ((url.scheme() != "http" && url.scheme() != "https") || url.host().empty()) return false;
  const auto port = url.port();
  if (port.empty()) return true;
  std::uint16_t number = 0;
  const auto [end, error] = std::from_chars(port.begin(), port.end(), number);
  return error == std::errc() && end == port.end() && number > 0;
}

/// Tags are exchanged by addresses that hold the prefix as it is, while uploads escape it.
bool isPlain(std::string_view prefix) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  return prefix.find_first_not_of(kPlain) == std::string_view::npos;
}

/// Whether a URL holds a user's name or password, which would be shown and stored with it.
bool holdsCredentials(const orvane::Url& url) {
  constexpr std::string_view kSeparator = "://";
  std::string_view authority = url.text();
  authority.remove_prefix(url.scheme().size() + kSeparator.size());
  return authority.substr(0, authority.find('/')).contains('@');
}

void warnIfOthersCanRead(const fs::path& file) {
  std::error_code ignored;
  const auto others = fs::perms::group_read | fs::perms::others_read;
  if ((fs::status(file, ignored).permissions() & others) == fs::perms::none) return;
  std::cerr << "orvane-backup: others can read the secret key in " << printable(file.string())
            << "; chmod 600 shuts them out\n";
}

/// Whether the identity is in the secure store.
bool isIdentityKept() {
  const auto answer = HostApplication::secureStore().read(orvane::DeviceUUID::keychainKey);
  if (!answer) throw Refusal("the device's identity: " + answer.error().description());
  return answer->has_value();
}

/// Where every object goes: endpoint, bucket and prefix in one text.
std::string destinationOf(const S3Config& config) { return config.url("").value().text(); }

/// A text of the preferences. Throws a `Refusal` where a busy file, say, does not let that be told.
std::optional<std::string> remembered(const char* key) {
  const auto bytes = Preferences::shared().readBytes(key);
  if (!bytes) throw Refusal("cannot read the preferences: " + bytes.error().description());
  if (!*bytes) return std::nullopt;
  return std::string(orvane::textOf(**bytes));
}

/// What the state belongs to, if that is not `now`.
std::optional<std::string> otherThan(const std::string& now, const char* key) {
  auto before = remembered(key);
  if (before == now || orvane::UploadStore::shared().completedCount() == 0) return std::nullopt;
  return before;
}

/// Refuses `now` where the state belongs to something else.
void requireSame(const char* key, const std::string& now) {
  const auto before = otherThan(now, key);
  if (!before) return;
  const fs::path records = HostApplication::applicationSupportDirectory().value_or("");
  throw Refusal("the records here belong to " + printable(*before) + ", not to " + printable(now) +
                "; give another --state, or delete \"" + printable(records.string()) +
                "\" to start over");
}

}  // namespace

S3Config readConfig(const fs::path& file) {
  const std::string name = printable(file.string());
  std::ifstream stream(file, std::ios::binary);
  std::error_code ignored;
  if (!stream || fs::is_directory(file, ignored)) {
    throw Refusal("cannot read the configuration " + name);
  }
  auto config = S3Config::fromJson(std::string(std::istreambuf_iterator<char>(stream), {}));
  if (!config) {
    throw Refusal(name + " must be a JSON object with the texts bucket, region, accessKey, " +
                  "secretKey, prefix and endpoint");
  }
  const auto url = config->url("");
  if (!config->isValid() || !url || !isWebAddress(*url)) {
    throw Refusal(name + ": only the prefix may be empty, and the endpoint must be a URL such as " +
                  "https://s3.example.org");
  }
  if (holdsCredentials(*url)) {
    throw Refusal(name + ": the endpoint must not hold a user or a password");
  }
  if (!isPlain(config->prefix)) {
    throw Refusal(name + ": the prefix may hold letters from A to Z, digits and -._~/ only");
  }
  warnIfOthersCanRead(file);
  return std::move(*config);
}

void prepare(const Device& device) {
  orvane::HostOptions options{.identifier = kIdentifier};
  if (device.state) options.dataDirectory = fs::absolute(*device.state);
  options.certificateAuthorities = device.authorities;
  if (device.keyring) {
    options.secureStore = std::make_shared<orvane::SecretServiceStore>(kIdentifier);
  }
  if (device.model) {
    const auto classifier = orvane::OnnxClassifier::open(*device.model);
    if (!classifier) throw Refusal(classifier.error().description());
    options.imageClassifier = *classifier;
  }
  const auto configured = HostApplication::configure(std::move(options));
  if (!configured) throw Refusal(configured.error().description());
  // The stores report no failure to write; a backup that forgets is better refused.
  const auto folder = HostApplication::applicationSupportDirectory();
  if (!folder) throw Refusal("there is no place for the records: set HOME or give --state");
  const auto made = orvane::platform::createPrivateFolders(*folder);
  // It may have been made open to others; file systems without modes leave it so.
  if (made) static_cast<void>(chmod(folder->c_str(), S_IRWXU));
  if (!made || access(folder->c_str(), W_OK) != 0) {
    throw Refusal("cannot write the records in " + printable(folder->string()));
  }
}

orvane::TagDatabase& openTags() {
  static auto& opened = [] -> auto& {
    valueOf(orvane::TagDatabase::shared().initialize());
    return orvane::TagDatabase::shared();
  }();
  return opened;
}

void lockState() {
  const fs::path folder = HostApplication::dataDirectory().value_or("");
  // In a folder of its own: the engine takes short turns with the state's folders itself.
  static const auto& lock =
      *new orvane::platform::FolderLock(folder / "Host", std::chrono::milliseconds(0));
  if (lock.isHeld()) return;
  if (!lock.isHeldByAnother()) {
    throw Refusal("cannot lock " + printable(folder.string()) +
                  "; give a --state on a file system that can");
  }
  throw Refusal("another orvane-backup is at work with " + printable(folder.string()) +
                "; wait for its end, or give another --state");
}

std::string deviceIdentity() {
  // An engine that cannot ask the secure store makes do with an identity that it forgets when the
  // program ends, and with it would go the tags.
  const bool kept = isIdentityKept();
  auto identity = orvane::DeviceUUID::shared().uuid();
  if (!kept && !isIdentityKept()) throw Refusal("the device's identity cannot be stored");
  return identity;
}

void requireFolder(const fs::path& folder) {
  std::error_code ignored;
  if (fs::is_directory(folder, ignored)) return;
  throw Refusal(printable(folder.string()) + " is not a folder");
}

void requireSameStore(const S3Config& config) {
  requireSame(kDestinationKey, destinationOf(config));
}

bool servesFolder(const fs::path& folder) {
  return !otherThan(fs::canonical(folder).string(), kFolderKey);
}

void bindState(const fs::path& folder, const S3Config& config) {
  const std::string place = fs::canonical(folder).string();
  const std::string destination = destinationOf(config);
  requireSame(kFolderKey, place);
  requireSame(kDestinationKey, destination);
  Preferences::shared().set(kFolderKey, orvane::bytesOf(place));
  Preferences::shared().set(kDestinationKey, orvane::bytesOf(destination));
}

fs::path rememberedFolder() {
  const auto folder = remembered(kFolderKey);
  if (!folder) throw Refusal("which FOLDER? Nothing was backed up here yet");
  return *folder;
}

}  // namespace backup
