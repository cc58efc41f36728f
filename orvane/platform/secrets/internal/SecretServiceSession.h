#pragma once

#include <orvane/platform/secrets/SecureStore.h>

// Object paths are part of libsecret's interface under this name alone.
#define SECRET_API_SUBJECT_TO_CHANGE
#include <libsecret/secret.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace orvane::platform {

/// Releases what GLib and libsecret hand out.
struct GRelease {
  void operator()(char* text) const { g_free(text); }
  void operator()(char** list) const { g_strfreev(list); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GHashTable* table) const { g_hash_table_unref(table); }
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
  void operator()(SecretValue* value) const { secret_value_unref(value); }
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GPtr = std::unique_ptr<T, GRelease>;

/// The store's error for one of GLib's, which it takes over; none at all is a refused dialogue.
[[nodiscard]] Error secureStoreErrorFrom(GError* error);

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

/// A conversation with the Secret Service, over a connection of its own and without any dialogue:
/// what would need one fails with `SECRET_ERROR_IS_LOCKED`. It must end on the thread that began
/// it.
class SecretServiceSession {
 public:
  /// Connects and agrees on a key. All that follows must be done within `timeLimit`.
  [[nodiscard]] static Result<std::unique_ptr<SecretServiceSession>> open(
      std::chrono::milliseconds timeLimit);

  [[nodiscard]] SecretService* service() const { return service_.get(); }
  /// To be given to every call of the conversation.
  [[nodiscard]] GCancellable* cancellable() const { return deadline_.cancellable(); }

 private:
  explicit SecretServiceSession(std::chrono::milliseconds timeLimit) : deadline_(timeLimit) {}
  [[nodiscard]] Result<void> connect();
  [[nodiscard]] Result<void> begin();

  OwnMainContext context_;
  Deadline deadline_;
  GPtr<GDBusConnection> connection_;
  GPtr<SecretService> service_;
};

}  // namespace orvane::platform
