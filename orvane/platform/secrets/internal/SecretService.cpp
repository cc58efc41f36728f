#include <orvane/platform/secrets/internal/SecretService.h>

#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/secrets/SecureStore.h>
#include <orvane/platform/secrets/internal/SecretServiceSession.h>

#include <string>
#include <string_view>

namespace orvane::platform {
namespace {

const SecretSchema& schema() {
  static const SecretSchema made = [] {
    SecretSchema schema{};
    schema.name = "org.orvane.SecureStore";
    schema.attributes[0] = {"application", SECRET_SCHEMA_ATTRIBUTE_STRING};
    schema.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    return schema;
  }();
  return made;
}

std::unexpected<Error> failed(SecureStoreErrorCode code) {
  return std::unexpected(SecureStore::error(code));
}

bool isGone(const GError* error) {
  return g_error_matches(error, SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT) != FALSE;
}

Bytes bytesIn(SecretValue& value) {
  gsize length = 0;
  const char* text = secret_value_get(&value, &length);
  const auto view = bytesOf({text, length});
  return {view.begin(), view.end()};
}

GPtr<SecretValue> valueOf(ByteView data) {
  const auto text = textOf(data);
  return GPtr<SecretValue>(secret_value_new(text.empty() ? "" : text.data(),
                                            static_cast<gssize>(text.size()),
                                            "application/octet-stream"));
}

/// One account's item in one session; every operation may fail.
class AccountItem {
 public:
  AccountItem(SecretServiceSession& session, const std::string& application,
              std::string_view account)
      : session_(session),
        label_(application + " " + std::string(account)),
        attributes_(secret_attributes_build(&schema(), "application", application.c_str(),
                                            "account", std::string(account).c_str(), nullptr)) {}

  Result<std::optional<Bytes>> read() {
    GError* error = nullptr;
    const GPtr<SecretValue> value(secret_service_lookup_sync(
        session_.service(), &schema(), attributes_.get(), session_.cancellable(), &error));
    if (value) return bytesIn(*value);
    if (error != nullptr && !isGone(error)) return std::unexpected(secureStoreErrorFrom(error));
    g_clear_error(&error);
    // Nothing found means nothing there where new items would go, if that is open.
    if (const auto collection = openDefaultCollection(); !collection) {
      return std::unexpected(collection.error());
    }
    return std::nullopt;
  }

  Result<void> replace(ByteView data) {
    const auto collection = openDefaultCollection();
    if (!collection) return std::unexpected(collection.error());
    const auto former = find();
    if (!former) return std::unexpected(former.error());
    GError* error = nullptr;
    const GPtr<SecretItem> item(secret_item_create_sync(
        collection->get(), &schema(), attributes_.get(), label_.c_str(), valueOf(data).get(),
        SECRET_ITEM_CREATE_REPLACE, session_.cancellable(), &error));
    if (!item) return std::unexpected(secureStoreErrorFrom(error));
    const std::string_view path = g_dbus_proxy_get_object_path(G_DBUS_PROXY(item.get()));
    // Others lie in another collection, perhaps one that is kept in memory alone.
    for (char** other = former->get(); *other != nullptr; ++other) {
      if (path == *other) continue;
      if (auto removed = remove(*other); !removed) return removed;
    }
    return {};
  }

 private:
  Result<GPtr<SecretCollection>> openDefaultCollection() {
    GError* error = nullptr;
    GPtr<SecretCollection> collection(
        secret_collection_for_alias_sync(session_.service(), SECRET_COLLECTION_DEFAULT,
                                         SECRET_COLLECTION_NONE, session_.cancellable(), &error));
    if (!collection) return std::unexpected(secureStoreErrorFrom(error));
    if (secret_collection_get_locked(collection.get()) != FALSE) {
      return failed(SecureStoreErrorCode::needsUser);
    }
    return collection;
  }

  /// The paths of all items of the account; an error when one of them is locked.
  Result<GPtr<char*>> find() {
    GError* error = nullptr;
    char** unlocked = nullptr;
    char** locked = nullptr;
    const bool found = secret_service_search_for_dbus_paths_sync(
                           session_.service(), &schema(), attributes_.get(), session_.cancellable(),
                           &unlocked, &locked, &error) != FALSE;
    GPtr<char*> paths(unlocked);
    const GPtr<char*> closed(locked);
    if (!found) return std::unexpected(secureStoreErrorFrom(error));
    if (*closed != nullptr) return failed(SecureStoreErrorCode::needsUser);
    return paths;
  }

  Result<void> remove(const char* path) {
    GError* error = nullptr;
    const auto removed = secret_service_delete_item_dbus_path_sync(session_.service(), path,
                                                                   session_.cancellable(), &error);
    if (removed == FALSE && !isGone(error)) return std::unexpected(secureStoreErrorFrom(error));
    g_clear_error(&error);
    return {};
  }

  SecretServiceSession& session_;
  std::string label_;
  GPtr<GHashTable> attributes_;
};

/// What D-Bus can carry as a text.
bool isDBusText(std::string_view text) {
  return isUtf8(text) && text.find('\0') == std::string_view::npos;
}

Result<std::optional<Bytes>> read(const std::string& application, std::string_view account,
                                  std::chrono::milliseconds timeLimit) {
  if (!isDBusText(account)) return failed(SecureStoreErrorCode::invalidAccount);
  const auto session = SecretServiceSession::open(timeLimit);
  if (!session) return std::unexpected(session.error());
  return AccountItem(**session, application, account).read();
}

Result<void> replace(const std::string& application, std::string_view account, ByteView data,
                     std::chrono::milliseconds timeLimit) {
  if (!isDBusText(account)) return failed(SecureStoreErrorCode::invalidAccount);
  const auto session = SecretServiceSession::open(timeLimit);
  if (!session) return std::unexpected(session.error());
  return AccountItem(**session, application, account).replace(data);
}

}  // namespace
}  // namespace orvane::platform

extern "C" {
[[gnu::visibility("default")]] extern const orvane::platform::SecretItems orvaneSecretService;
const orvane::platform::SecretItems orvaneSecretService{.read = orvane::platform::read,
                                                        .replace = orvane::platform::replace};
}
