#pragma once

#include <orvane/Error.h>
#include <orvane/platform/Bytes.h>
#include <orvane/platform/internal/BlockedSignals.h>

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace orvane::platform {

/// Releases what GLib counts references of.
struct GRelease {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GPtr = std::unique_ptr<T, GRelease>;

/// A main context that is the calling thread's own for as long as it lives.
class OwnMainContext {
 public:
  OwnMainContext() : context_(g_main_context_new()) {
    g_main_context_push_thread_default(context_.get());
  }
  ~OwnMainContext();
  OwnMainContext(const OwnMainContext&) = delete;
  OwnMainContext& operator=(const OwnMainContext&) = delete;

 private:
  GPtr<GMainContext> context_;
};

/// Cancels whatever still goes on when the time is up.
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds limit);

  [[nodiscard]] GCancellable* cancellable() const { return cancellable_.get(); }

 private:
  GPtr<GCancellable> cancellable_{g_cancellable_new()};
  std::mutex mutex_;
  std::condition_variable_any ended_;
  std::jthread timer_;
};

/// A conversation with the Secret Service, over a connection of its own. It must end on the thread
/// that began it.
class SecretServiceSession {
 public:
  /// Connects and agrees on a key. All that follows must be done within `timeLimit`.
  [[nodiscard]] static Result<std::unique_ptr<SecretServiceSession>> open(
      std::chrono::milliseconds timeLimit);

  /// Calls a method of the service; `parameters` may be floating. The answer has the type
  /// `answerType`.
  [[nodiscard]] Result<GPtr<GVariant>> call(const std::string& path, const char* interface,
                                            const char* method, GVariant* parameters,
                                            const char* answerType);

  /// The object path that stands for this session.
  [[nodiscard]] const char* path() const;

  /// The secret as it travels in this session.
  [[nodiscard]] GPtr<GVariant> encode(ByteView secret) const;

  /// The secret in what has travelled; nothing when it does not belong to this session.
  [[nodiscard]] std::optional<Bytes> decode(GVariant* secret) const;

 private:
  explicit SecretServiceSession(std::chrono::milliseconds timeLimit) : deadline_(timeLimit) {}
  [[nodiscard]] Result<void> connect();

  BlockedSignals blockedSignals_;  // The first connection of a process starts a thread of GIO's.
  OwnMainContext context_;
  Deadline deadline_;
  GPtr<GDBusConnection> connection_;
  GPtr<GDBusProxy> service_;  // libsecret's SecretService, whose header stays out of this one.
};

}  // namespace orvane::platform
