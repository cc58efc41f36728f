#include <orvane/platform/HostApplication.h>
#include <orvane/platform/SecretServiceStore.h>
#include <orvane/platform/Utf8.h>
#include <orvane/platform/internal/SecretServiceSession.h>

#include <string>
#include <utility>
#include <vector>

namespace orvane {
namespace {

using platform::GPtr;
using platform::SecretServiceSession;
using ObjectPath = std::string;

constexpr const char* kServicePath = "/org/freedesktop/secrets";
constexpr const char* kService = "org.freedesktop.Secret.Service";
constexpr const char* kCollection = "org.freedesktop.Secret.Collection";
constexpr const char* kItem = "org.freedesktop.Secret.Item";
constexpr const char* kSchema = "org.orvane.SecureStore";

std::unexpected<Error> failed(SecureStoreErrorCode code, std::string_view detail = {}) {
  return std::unexpected(SecureStore::error(code, detail));
}

std::unexpected<Error> needsUser() { return failed(SecureStoreErrorCode::needsUser); }

/// What tells the item from all others; floating.
GVariant* attributesOf(const std::string& account) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  g_variant_builder_add(&builder, "{ss}", "xdg:schema", kSchema);
  g_variant_builder_add(&builder, "{ss}", "application", HostApplication::identifier().c_str());
  g_variant_builder_add(&builder, "{ss}", "account", account.c_str());
  return g_variant_builder_end(&builder);
}

std::vector<ObjectPath> pathsIn(GVariant* answer, gsize index) {
  std::vector<ObjectPath> paths;
  const GPtr<GVariant> list(g_variant_get_child_value(answer, index));
  for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
    const char* path = nullptr;
    g_variant_get_child(list.get(), i, "&o", &path);
    paths.emplace_back(path);
  }
  return paths;
}

ObjectPath pathIn(GVariant* answer, gsize index) {
  const char* path = nullptr;
  g_variant_get_child(answer, index, "&o", &path);
  return path;
}

/// "/" stands for no object.
bool isObject(const ObjectPath& path) { return path != "/"; }

struct Items {
  std::vector<ObjectPath> unlocked;
  std::vector<ObjectPath> locked;
};

/// One account's item in one session; every operation may fail.
class AccountItem {
 public:
  AccountItem(SecretServiceSession& session, std::string account)
      : session_(session), account_(std::move(account)) {}

  Result<std::optional<Bytes>> read() {
    const auto items = find();
    if (!items) return std::unexpected(items.error());
    if (!items->unlocked.empty()) return secretOf(items->unlocked.front());
    if (!items->locked.empty()) return needsUser();
    return absence();
  }

  Result<void> replace(ByteView data) {
    const auto items = find();
    if (!items) return std::unexpected(items.error());
    if (!items->locked.empty()) return needsUser();
    if (items->unlocked.empty()) return create(data);
    // Several are not the work of this class, but must not stay.
    for (std::size_t i = 1; i < items->unlocked.size(); ++i) {
      if (auto removed = remove(items->unlocked[i]); !removed) return removed;
    }
    return setSecret(items->unlocked.front(), data);
  }

 private:
  Result<Items> find() {
    const auto answer = session_.call(kServicePath, kService, "SearchItems",
                                      g_variant_new("(@a{ss})", attributesOf(account_)), "(aoao)");
    if (!answer) return std::unexpected(answer.error());
    return Items{pathsIn(answer->get(), 0), pathsIn(answer->get(), 1)};
  }

  Result<std::optional<Bytes>> secretOf(const ObjectPath& item) {
    const auto answer = session_.call(item, kItem, "GetSecret",
                                      g_variant_new("(o)", session_.path()), "((oayays))");
    if (!answer) return std::unexpected(answer.error());
    const GPtr<GVariant> secret(g_variant_get_child_value(answer->get(), 0));
    auto bytes = session_.decode(secret.get());
    if (!bytes) return failed(SecureStoreErrorCode::failed, "the item cannot be decoded");
    return bytes;
  }

  Result<ObjectPath> defaultCollection() {
    const auto answer =
        session_.call(kServicePath, kService, "ReadAlias", g_variant_new("(s)", "default"), "(o)");
    if (!answer) return std::unexpected(answer.error());
    return pathIn(answer->get(), 0);
  }

  /// Nothing, when what was not found is surely not there.
  Result<std::optional<Bytes>> absence() {
    const auto collection = defaultCollection();
    if (!collection) return std::unexpected(collection.error());
    if (!isObject(*collection)) return std::nullopt;
    const auto answer = session_.call(*collection, "org.freedesktop.DBus.Properties", "Get",
                                      g_variant_new("(ss)", kCollection, "Locked"), "(v)");
    if (!answer) return std::unexpected(answer.error());
    const GPtr<GVariant> boxed(g_variant_get_child_value(answer->get(), 0));
    const GPtr<GVariant> locked(g_variant_get_variant(boxed.get()));
    const bool isUnlocked = g_variant_is_of_type(locked.get(), G_VARIANT_TYPE_BOOLEAN) != FALSE &&
                            g_variant_get_boolean(locked.get()) == FALSE;
    if (!isUnlocked) return needsUser();
    return std::nullopt;
  }

  Result<void> create(ByteView data) {
    const auto collection = defaultCollection();
    if (!collection) return std::unexpected(collection.error());
    if (!isObject(*collection)) {
      return failed(SecureStoreErrorCode::unavailable, "there is no default collection");
    }
    const auto label = HostApplication::identifier() + " " + account_;
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                          g_variant_new_string(label.c_str()));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                          attributesOf(account_));
    // "Replace" makes one item of two that are created at the same time.
    const auto answer = session_.call(
        *collection, kCollection, "CreateItem",
        g_variant_new("(a{sv}@(oayays)b)", &properties, session_.encode(data).get(), TRUE), "(oo)");
    if (!answer) return std::unexpected(answer.error());
    if (!isObject(pathIn(answer->get(), 0))) return needsUser();
    return {};
  }

  Result<void> setSecret(const ObjectPath& item, ByteView data) {
    const auto answer = session_.call(
        item, kItem, "SetSecret", g_variant_new("(@(oayays))", session_.encode(data).get()), "()");
    if (!answer) return std::unexpected(answer.error());
    return {};
  }

  Result<void> remove(const ObjectPath& item) {
    const auto answer = session_.call(item, kItem, "Delete", nullptr, "(o)");
    if (!answer) return std::unexpected(answer.error());
    if (isObject(pathIn(answer->get(), 0))) return needsUser();
    return {};
  }

  SecretServiceSession& session_;
  std::string account_;
};

/// What D-Bus can carry as a text.
bool isDBusText(std::string_view text) {
  return platform::isUtf8(text) && text.find('\0') == std::string_view::npos;
}

}  // namespace

Result<std::optional<Bytes>> SecretServiceStore::read(std::string_view account) {
  if (!isDBusText(account)) return failed(SecureStoreErrorCode::invalidAccount);
  const auto session = SecretServiceSession::open(timeLimit_);
  if (!session) return std::unexpected(session.error());
  return AccountItem(**session, std::string(account)).read();
}

Result<void> SecretServiceStore::replace(std::string_view account, ByteView data) {
  if (!isDBusText(account)) return failed(SecureStoreErrorCode::invalidAccount);
  const auto session = SecretServiceSession::open(timeLimit_);
  if (!session) return std::unexpected(session.error());
  return AccountItem(**session, std::string(account)).replace(data);
}

}  // namespace orvane
