#include <orvane/platform/SecureStore.h>
#include <orvane/platform/internal/SecretServiceSession.h>

// How secrets travel is part of libsecret's interface under this name alone.
#define SECRET_API_SUBJECT_TO_CHANGE
#include <libsecret/secret.h>

#include <cstddef>
#include <cstdlib>
#include <span>
#include <stop_token>

namespace orvane::platform {
namespace {

constexpr const char* kServiceName = "org.freedesktop.secrets";
constexpr int kNoTimeLimitOfItsOwn = G_MAXINT;  // The deadline's cancellable ends calls.

/// Takes the error over.
Error errorFrom(GError* raw) {
  const std::unique_ptr<GError, decltype([](GError* error) { g_error_free(error); })> error(raw);
  using Code = SecureStoreErrorCode;
  const auto is = [&error](GQuark domain, int code) {
    return g_error_matches(error.get(), domain, code) != FALSE;
  };
  if (is(SECRET_ERROR, SECRET_ERROR_IS_LOCKED)) return SecureStore::error(Code::needsUser);
  if (is(G_IO_ERROR, G_IO_ERROR_CANCELLED) || is(G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY)) {
    return SecureStore::error(Code::unavailable, "the Secret Service does not answer");
  }
  if (is(G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
      is(G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
    return SecureStore::error(Code::unavailable, "no Secret Service is running");
  }
  g_dbus_error_strip_remote_error(error.get());
  return SecureStore::error(Code::failed, error->message);
}

/// Where the user's session bus listens. GLib's own look-up would start a bus if there is none.
std::optional<std::string> sessionBusAddress() {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') return address;
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/') return std::nullopt;
  const std::unique_ptr<char, decltype([](char* text) { g_free(text); })> escaped(
      g_dbus_address_escape_value(folder));
  return "unix:path=" + std::string(escaped.get()) + "/bus";
}

Result<GPtr<GDBusConnection>> connectToSessionBus(GCancellable* cancellable) {
  const auto address = sessionBusAddress();
  if (!address) {
    return std::unexpected(
        SecureStore::error(SecureStoreErrorCode::unavailable, "there is no session bus"));
  }
  constexpr int kBusClient = G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION;
  // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): a C library's combined flags
  constexpr auto kFlags = static_cast<GDBusConnectionFlags>(kBusClient);
  GError* error = nullptr;
  GPtr<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
      address->c_str(), kFlags, nullptr, cancellable, &error));
  if (connection) return connection;
  const auto reason = errorFrom(error).description();
  return std::unexpected(SecureStore::error(SecureStoreErrorCode::unavailable,
                                            "the session bus cannot be reached: " + reason));
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

/// libsecret's service on a connection of our own.
GType ownServiceType() {
  static const GType type = g_type_register_static_simple(
      SECRET_TYPE_SERVICE, "OrvaneSecretService", sizeof(SecretServiceClass),
      [](gpointer ownClass, gpointer) {
        G_OBJECT_CLASS(ownClass)->constructor = constructOnGivenConnection;
      },
      sizeof(SecretService), nullptr, GTypeFlags{});
  return type;
}

}  // namespace

OwnMainContext::~OwnMainContext() {
  // What ended in this context may have left its last steps here.
  while (g_main_context_iteration(context_.get(), FALSE) != FALSE) {
  }
  g_main_context_pop_thread_default(context_.get());
}

Deadline::Deadline(std::chrono::milliseconds limit)
    : timer_([this, limit](const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        ended_.wait_for(lock, stop, limit, [] { return false; });
        if (!stop.stop_requested()) g_cancellable_cancel(cancellable_.get());
      }) {}

Result<std::unique_ptr<SecretServiceSession>> SecretServiceSession::open(
    std::chrono::milliseconds timeLimit) {
  std::unique_ptr<SecretServiceSession> session(new SecretServiceSession(timeLimit));
  if (auto connected = session->connect(); !connected) return std::unexpected(connected.error());
  return session;
}

Result<void> SecretServiceSession::connect() {
  auto connection = connectToSessionBus(deadline_.cancellable());
  if (!connection) return std::unexpected(connection.error());
  connection_ = std::move(*connection);
  GError* error = nullptr;
  gpointer service = g_initable_new(
      ownServiceType(), deadline_.cancellable(), &error, "g-connection", connection_.get(),
      "g-default-timeout", kNoTimeLimitOfItsOwn, "flags", SECRET_SERVICE_OPEN_SESSION, nullptr);
  if (service == nullptr) return std::unexpected(errorFrom(error));
  service_.reset(G_DBUS_PROXY(service));
  return {};
}

Result<GPtr<GVariant>> SecretServiceSession::call(const std::string& path, const char* interface,
                                                  const char* method, GVariant* parameters,
                                                  const char* answerType) {
  GError* error = nullptr;
  GPtr<GVariant> answer(
      g_dbus_connection_call_sync(connection_.get(), kServiceName, path.c_str(), interface, method,
                                  parameters, G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NONE,
                                  kNoTimeLimitOfItsOwn, deadline_.cancellable(), &error));
  if (!answer) return std::unexpected(errorFrom(error));
  return answer;
}

const char* SecretServiceSession::path() const {
  return secret_service_get_session_dbus_path(SECRET_SERVICE(service_.get()));
}

GPtr<GVariant> SecretServiceSession::encode(ByteView secret) const {
  const auto text = textOf(secret);
  SecretValue* value =
      secret_value_new(text.empty() ? "" : text.data(), static_cast<gssize>(text.size()),
                       "application/octet-stream");
  GPtr<GVariant> encoded(
      g_variant_take_ref(secret_service_encode_dbus_secret(SECRET_SERVICE(service_.get()), value)));
  secret_value_unref(value);
  return encoded;
}

std::optional<Bytes> SecretServiceSession::decode(GVariant* secret) const {
  SecretValue* value = secret_service_decode_dbus_secret(SECRET_SERVICE(service_.get()), secret);
  if (value == nullptr) return std::nullopt;
  gsize length = 0;
  const char* text = secret_value_get(value, &length);
  const auto view = bytesOf({text, length});
  Bytes bytes(view.begin(), view.end());
  secret_value_unref(value);
  return bytes;
}

}  // namespace orvane::platform
