#include <orvane/bookkeeping/DeviceUUID.h>

#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/base/Uuid.h>
#include <orvane/platform/files/FolderLock.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/secrets/SecureStore.h>

#include <chrono>
#include <cstdio>

namespace orvane {
namespace {

/// A secure store that does not answer may take its time limit twice.
constexpr std::chrono::seconds kLongestTurn{60};

}  // namespace

DeviceUUID& DeviceUUID::shared() {
  // Never destroyed: queues may still ask for it while the process exits.
  static auto& instance = *new DeviceUUID;
  return instance;
}

std::string DeviceUUID::uuid() {
  const std::lock_guard guard(lock_);
  if (cachedUUID_) return *cachedUUID_;
  // Of two processes that look for the first time, the second finds what the first has stored.
  std::optional<platform::FolderLock> turn;
  if (const auto folder = HostApplication::dataDirectory()) turn.emplace(*folder, kLongestTurn);
  cachedUUID_ = loadFromKeychain();
  if (!cachedUUID_) {
    auto identifier = platform::randomUuid();
    saveToKeychain(identifier);
    cachedUUID_ = std::move(identifier);
  }
  return *cachedUUID_;
}

void DeviceUUID::resetForTesting() {
  const std::lock_guard guard(lock_);
  cachedUUID_.reset();
}

std::optional<std::string> DeviceUUID::loadFromKeychain() {
  const auto stored = HostApplication::secureStore().read(keychainKey);
  if (!stored || !*stored) return std::nullopt;
  const auto text = textOf(**stored);
  if (!platform::isUtf8(text)) return std::nullopt;
  return std::string(text);
}

void DeviceUUID::saveToKeychain(std::string_view identifier) {
  const auto saved = HostApplication::secureStore().replace(keychainKey, bytesOf(identifier));
  if (saved) return;
  const auto line = "Keychain save error: " + std::to_string(saved.error().code()) + '\n';
  std::fputs(line.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace orvane
