#include "Setup.h"

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/platform/OnnxClassifier.h>
#include <orvane/platform/Preferences.h>
#include <orvane/platform/SecretServiceStore.h>
#include <orvane/tagging/TagDatabase.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "Commands.h"
#include "Display.h"

namespace backup {

namespace fs = std::filesystem;
using orvane::HostApplication;
using orvane::Preferences;
using orvane::S3Config;

namespace {

constexpr auto kFolderKey = "backup_folder";

/// An engine that cannot ask the secure store makes do with an identity that it forgets when the
/// program ends, and with it would go the tags.
void checkSecureStore() {
  const auto answer = HostApplication::secureStore().read(orvane::DeviceUUID::keychainKey);
  if (!answer) throw Refusal(answer.error().description());
}

}  // namespace

S3Config readConfig(const fs::path& file) {
  const std::string name = printable(file.string());
  std::ifstream stream(file, std::ios::binary);
  if (!stream || fs::is_directory(file)) throw Refusal("cannot read the configuration " + name);
  auto config = S3Config::fromJson(std::string(std::istreambuf_iterator<char>(stream), {}));
  if (!config) {
    throw Refusal(name + " must be a JSON object with the texts bucket, region, accessKey, " +
                  "secretKey, prefix and endpoint");
  }
  if (!config->isValid() || !config->url("")) {
    throw Refusal(name + ": only the prefix may be empty, and the endpoint must be a URL");
  }
  return std::move(*config);
}

void prepare(const Device& device) {
  orvane::HostOptions options{.identifier = "org.orvane.backup"};
  if (device.state) options.dataDirectory = fs::absolute(*device.state);
  if (device.keyring) options.secureStore = std::make_shared<orvane::SecretServiceStore>();
  if (device.model) {
    const auto classifier = orvane::OnnxClassifier::open(*device.model);
    if (!classifier) throw Refusal(classifier.error().description());
    options.imageClassifier = *classifier;
  }
  const auto configured = HostApplication::configure(std::move(options));
  if (!configured) throw Refusal(configured.error().description());
  if (device.keyring) checkSecureStore();
  // The stores report no failure to write; a backup that forgets is better refused.
  const auto folder = HostApplication::applicationSupportDirectory();
  if (!folder) throw Refusal("there is no place for the records: set HOME or give --state");
  std::error_code error;
  fs::create_directories(*folder, error);
  if (error || access(folder->c_str(), W_OK) != 0) {
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

void rememberFolder(const fs::path& folder) {
  Preferences::shared().set(kFolderKey, orvane::bytesOf(fs::absolute(folder).string()));
}

fs::path rememberedFolder() {
  const auto folder = Preferences::shared().bytes(kFolderKey);
  if (!folder) throw Refusal("which FOLDER? Nothing was backed up here yet");
  return orvane::textOf(*folder);
}

}  // namespace backup
