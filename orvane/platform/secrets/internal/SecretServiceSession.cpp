#include <orvane/platform/secrets/internal/SecretServiceSession.h>

#include <orvane/platform/concurrency/BlockedSignals.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stop_token>
#include <string>
#include <system_error>

namespace orvane::platform {
namespace {

/// What a clock can still count from now on; nobody waits that long for a service.
constexpr std::chrono::milliseconds kLongestTime = std::chrono::hours(1);

std::unexpected<Error> unavailable(std::string_view detail) {
  return std::unexpected(SecureStore::error(SecureStoreErrorCode::unavailable, detail));
}

/// Why nobody answers, if that is what the error says.
const char* absenceIn(const GError& error) {
  if (error.domain == G_IO_ERROR) {
    const bool isSilence = error.code == G_IO_ERROR_CANCELLED || error.code == G_IO_ERROR_CLOSED ||
                           error.code == G_IO_ERROR_BROKEN_PIPE ||
                           error.code == G_IO_ERROR_TIMED_OUT;
    return isSilence ? "the Secret Service does not answer" : nullptr;
  }
  if (error.domain != G_DBUS_ERROR) return nullptr;
  switch (error.code) {
    case G_DBUS_ERROR_SERVICE_UNKNOWN:
    case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
      return "no Secret Service is running";
    case G_DBUS_ERROR_NO_REPLY:
    case G_DBUS_ERROR_TIMEOUT:
    case G_DBUS_ERROR_TIMED_OUT:
    case G_DBUS_ERROR_DISCONNECTED:
      return "the Secret Service does not answer";
    default:
      const bool isFailedStart = error.code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
                                 error.code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
      return isFailedStart ? "the Secret Service cannot be started" : nullptr;
  }
}

/// Where the user's session bus listens. GLib's own look-up would start a bus if there is none.
std::optional<std::string> sessionBusAddress() {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') return address;
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/') return std::nullopt;
  const GPtr<char> escaped(g_dbus_address_escape_value(folder));
  return "unix:path=" + std::string(escaped.get()) + "/bus";
}

/// libsecret's constructor asks for the process's connection to the session bus, which is kept when
/// it has broken, and would then end a process that runs a main loop. This one takes that back.
GObject* constructOnGivenConnection(GType type, guint count, GObjectConstructParam* properties) {
  gpointer base = g_type_class_peek(SECRET_TYPE_SERVICE);
  GObject* object = G_OBJECT_CLASS(base)->constructor(type, count, properties);
  g_object_set(
      object, "g-bus-type", G_BUS_TYPE_NONE, "g-flags",
      G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS,
      nullptr);
  return object;
}

constexpr const char* kRefusal = "a dialogue would be needed";

GVariant* refusePrompt(SecretService*, SecretPrompt*, GCancellable*, const GVariantType*,
                       GError** error) {
  g_set_error_literal(error, SECRET_ERROR, SECRET_ERROR_IS_LOCKED, kRefusal);
  return nullptr;
}

void beginRefusingPrompt(SecretService* self, SecretPrompt*, const GVariantType*, GCancellable*,
                         GAsyncReadyCallback callback, gpointer userData) {
  g_task_report_new_error(self, callback, userData, nullptr, SECRET_ERROR, SECRET_ERROR_IS_LOCKED,
                          "%s", kRefusal);
}

GVariant* endRefusingPrompt(SecretService*, GAsyncResult* result, GError** error) {
  return static_cast<GVariant*>(g_task_propagate_pointer(G_TASK(result), error));
}

/// libsecret's service on a connection of our own, and without dialogues.
GType ownServiceType() {
  static const GType type = g_type_register_static_simple(
      SECRET_TYPE_SERVICE, "OrvaneSecretService", sizeof(SecretServiceClass),
      [](gpointer ownClass, gpointer) {
        G_OBJECT_CLASS(ownClass)->constructor = constructOnGivenConnection;
        auto* service = static_cast<SecretServiceClass*>(ownClass);
        service->prompt_sync = refusePrompt;
        service->prompt_async = beginRefusingPrompt;
        service->prompt_finish = endRefusingPrompt;
      },
      sizeof(SecretService), nullptr, GTypeFlags{});
  return type;
}

}  // namespace

Error secureStoreErrorFrom(GError* raw) {
  using Code = SecureStoreErrorCode;
  const GPtr<GError> error(raw);
  if (!error || g_error_matches(raw, SECRET_ERROR, SECRET_ERROR_IS_LOCKED) != FALSE) {
    return SecureStore::error(Code::needsUser);
  }
  if (const char* why = absenceIn(*error)) return SecureStore::error(Code::unavailable, why);
  g_dbus_error_strip_remote_error(error.get());
  return SecureStore::error(Code::failed, error->message);
}

OwnMainContext::~OwnMainContext() {
  // What ended in this context may have left its last steps here.
  while (g_main_context_iteration(context_.get(), FALSE) != FALSE) {
  }
  g_main_context_pop_thread_default(context_.get());
}

Deadline::Deadline(std::chrono::milliseconds limit)
    : timer_([this, limit](const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        ended_.wait_for(lock, stop,
                        std::clamp(limit, std::chrono::milliseconds::zero(), kLongestTime),
                        [] { return false; });
        if (!stop.stop_requested()) g_cancellable_cancel(cancellable_.get());
      }) {}

Result<std::unique_ptr<SecretServiceSession>> SecretServiceSession::open(
    std::chrono::milliseconds timeLimit) {
  std::unique_ptr<SecretServiceSession> session;
  try {
    // The timer's thread starts here, and GIO's with the process's first connection.
    const BlockedSignals blocked;
    session.reset(new SecretServiceSession(timeLimit));
    if (auto connected = session->connect(); !connected) return std::unexpected(connected.error());
  } catch (const std::system_error& error) {
    return unavailable(error.what());
  }
  if (auto begun = session->begin(); !begun) return std::unexpected(begun.error());
  return session;
}

Result<void> SecretServiceSession::connect() {
  const auto address = sessionBusAddress();
  if (!address) return unavailable("there is no session bus");
  constexpr int kBusClient = G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION;
  // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): a C library's combined flags
  constexpr auto kFlags = static_cast<GDBusConnectionFlags>(kBusClient);
  GError* error = nullptr;
  connection_.reset(g_dbus_connection_new_for_address_sync(address->c_str(), kFlags, nullptr,
                                                           cancellable(), &error));
  if (connection_) return {};
  return unavailable("the session bus cannot be reached: " +
                     std::string(secureStoreErrorFrom(error).description()));
}

Result<void> SecretServiceSession::begin() {
  GError* error = nullptr;
  gpointer service =
      g_initable_new(ownServiceType(), cancellable(), &error, "g-connection", connection_.get(),
                     "g-default-timeout", G_MAXINT, "flags", SECRET_SERVICE_OPEN_SESSION, nullptr);
  if (service == nullptr) return std::unexpected(secureStoreErrorFrom(error));
  service_.reset(SECRET_SERVICE(service));
  return {};
}

}  // namespace orvane::platform
