#include <orvane/platform/host/HostApplication.h>

#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/http/TrustedAuthorities.h>
#include <orvane/platform/secrets/FileSecureStore.h>
#include <orvane/platform/vision/ImageClassifier.h>
#include <orvane/platform/vision/SceneClassifier.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace orvane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSecretsFolder = "Secrets";

struct Settings {
  std::mutex mutex;
  bool fixed = false;
  HostOptions options;
  std::optional<fs::path> dataDirectory;
};

Settings& settings() {
  // Never destroyed: queues may still ask for it while the process exits.
  static auto& instance = *new Settings;
  return instance;
}

std::optional<fs::path> absolutePathIn(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr || *value != '/') return std::nullopt;
  return fs::path(value);
}

std::optional<fs::path> defaultDataDirectory(const std::string& identifier) {
  if (const auto data = absolutePathIn("XDG_DATA_HOME")) return *data / identifier;
  if (const auto home = absolutePathIn("HOME")) return *home / ".local" / "share" / identifier;
  return std::nullopt;
}

void fix(Settings& settings) {
  if (settings.fixed) return;
  settings.fixed = true;
  settings.dataDirectory = settings.options.dataDirectory
                               ? settings.options.dataDirectory
                               : defaultDataDirectory(settings.options.identifier);
  auto& store = settings.options.secureStore;
  if (!store) {
    const auto& data = settings.dataDirectory;
    store = std::make_shared<FileSecureStore>(data ? *data / kSecretsFolder : fs::path());
  }
  auto& classifier = settings.options.imageClassifier;
  if (!classifier) classifier = std::make_shared<SceneClassifier>();
  if (const auto& helpers = settings.options.helperFolder) platform::setHelperFolder(*helpers);
}

const Settings& fixedSettings() {
  auto& instance = settings();
  const std::lock_guard lock(instance.mutex);
  fix(instance);
  return instance;
}

bool isIdentifier(std::string_view text) {
  constexpr std::string_view kAllowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_";
  return !text.empty() && text.front() != '.' &&
         text.find_first_not_of(kAllowed) == std::string_view::npos;
}

std::unexpected<Error> refused(int code, std::string reason) {
  return std::unexpected(Error("HostApplication", code, std::move(reason)));
}

std::optional<fs::path> inDataDirectory(const char* name) {
  const auto data = HostApplication::dataDirectory();
  if (!data) return std::nullopt;
  return *data / name;
}

}  // namespace

Result<void> HostApplication::configure(HostOptions options) {
  auto& instance = settings();
  const std::lock_guard lock(instance.mutex);
  if (instance.fixed) return refused(1, "The host application is already configured or in use");
  if (!isIdentifier(options.identifier)) return refused(2, "The identifier is malformed");
  if (options.dataDirectory && !options.dataDirectory->is_absolute()) {
    return refused(3, "The data directory is not an absolute path");
  }
  if (options.helperFolder && !options.helperFolder->is_absolute()) {
    return refused(5, "The helper folder is not an absolute path");
  }
  if (options.certificateAuthorities) {
    const auto trusted = platform::trustAuthoritiesIn(*options.certificateAuthorities);
    if (!trusted)
      return refused(4, "No authorities' certificates: " + trusted.error().description());
  }
  instance.options = std::move(options);
  fix(instance);
  return {};
}

const std::string& HostApplication::identifier() { return fixedSettings().options.identifier; }

std::optional<fs::path> HostApplication::dataDirectory() { return fixedSettings().dataDirectory; }

std::optional<fs::path> HostApplication::applicationSupportDirectory() {
  return inDataDirectory("Application Support");
}

std::optional<fs::path> HostApplication::secretsDirectory() {
  return inDataDirectory(kSecretsFolder);
}

std::optional<fs::path> HostApplication::documentsDirectory() {
  return inDataDirectory("Documents");
}

SecureStore& HostApplication::secureStore() { return *fixedSettings().options.secureStore; }

const ImageClassifier& HostApplication::imageClassifier() {
  return *fixedSettings().options.imageClassifier;
}

}  // namespace orvane
