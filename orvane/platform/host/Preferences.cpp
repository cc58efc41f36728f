#include <orvane/platform/host/Preferences.h>

#include <orvane/platform/database/DatabaseQueue.h>
#include <orvane/platform/files/FolderLock.h>
#include <orvane/platform/files/FolderOperations.h>
#include <orvane/platform/files/PreservedFile.h>
#include <orvane/platform/host/HostApplication.h>

#include <sqlite3.h>

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using platform::Database;
using platform::DatabaseQueue;
using platform::DatabaseRow;
using platform::DatabaseValue;

constexpr std::string_view kCreate =
    "CREATE TABLE IF NOT EXISTS preferences"
    " (key TEXT NOT NULL PRIMARY KEY, kind TEXT NOT NULL, value NOT NULL)";
constexpr std::string_view kFind = "SELECT value FROM preferences WHERE key = ? AND kind = ?";
constexpr std::string_view kSet =
    "INSERT OR REPLACE INTO preferences (key, kind, value) VALUES (?, ?, ?)";
constexpr std::string_view kRemove = "DELETE FROM preferences WHERE key = ?";

/// Of opening the file, or replacing it; that is as long as SQLite waits.
constexpr std::chrono::seconds kLongestTurn{10};

constexpr std::string_view kBoolean = "boolean";
constexpr std::string_view kInteger = "integer";
constexpr std::string_view kBytes = "bytes";

/// The rollback journal leaves a single file at rest; EXTRA also syncs the folder after removing
/// the journal, without which a power cut could undo a change that was reported done.
Result<void> prepare(Database& database) {
  for (const auto statement : {std::string_view("PRAGMA busy_timeout=10000"),
                               std::string_view("PRAGMA synchronous=EXTRA"), kCreate}) {
    if (auto done = database.execute(statement); !done) return done;
  }
  return {};
}

template <class T>
bool isCorrupt(const Result<T>& result) {
  if (result || result.error().domain() != Error::kDatabase) return false;
  const auto primary = result.error().code() & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

/// Which file a name leads to.
using FileIdentity = std::pair<dev_t, ino_t>;

std::optional<FileIdentity> identityOf(const fs::path& file) {
  struct stat status{};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity(status.st_dev, status.st_ino);
}

/// Keeps the file aside, and with it the journal that belongs to it. In that order: next to a
/// missing file SQLite discards a journal.
bool preserve(const fs::path& file) {
  const auto kept = platform::preserveFile(file, ".corrupt");
  if (!kept) return false;
  std::error_code ignored;
  fs::rename(file.string() + "-journal", kept->string() + "-journal", ignored);
  return true;
}

}  // namespace

/// The file, opened when first needed, and again whenever its name leads to another one.
struct Preferences::Store {
  template <class Block>
  auto use(Block&& block) -> std::invoke_result_t<Block&, DatabaseQueue&> {
    const std::lock_guard guard(mutex);
    const auto folder = HostApplication::applicationSupportDirectory();
    if (!folder) return std::unexpected(Error(Error::kPosix, ENOENT, "There is no data folder"));
    const auto file = *folder / "preferences.sqlite";
    if (queue && identityOf(file) == identity) {
      auto result = block(*queue);
      if (!isCorrupt(result)) return result;
    }
    if (auto made = platform::createPrivateFolders(*folder); !made) {
      return std::unexpected(std::move(made).error());
    }
    // Under the lock the file is looked at once more: another process may have replaced it.
    const platform::FolderLock lock(*folder, kLongestTurn);
    auto result = openAndRun(file, block);
    const bool isTheOneRead = identityOf(file) == identity;
    if (isCorrupt(result) && isTheOneRead && preserve(file)) result = openAndRun(file, block);
    return result;
  }

  template <class T, class Map>
  Result<std::optional<T>> find(std::string_view key, std::string_view kind, Map&& map) {
    return use([&](DatabaseQueue& opened) {
      return opened.read([&](Database& database) {
        return database.fetchOne(kFind, {key, kind}, {"value"}, map);
      });
    });
  }

  void write(std::string_view statement, platform::DatabaseArguments arguments) {
    static_cast<void>(use([&](DatabaseQueue& opened) {
      return opened.write(
          [&](Database& database) { return database.execute(statement, arguments); });
    }));
  }

 private:
  template <class Block>
  auto openAndRun(const fs::path& file, Block& block)
      -> std::invoke_result_t<Block&, DatabaseQueue&> {
    queue.reset();
    identity = identityOf(file);
    auto opened = DatabaseQueue::open(file, prepare);
    if (!opened) return std::unexpected(std::move(opened).error());
    queue = std::move(*opened);
    if (!identity) identity = identityOf(file);
    return block(*queue);
  }

  std::mutex mutex;
  std::unique_ptr<DatabaseQueue> queue;
  std::optional<FileIdentity> identity;
};

Preferences::Preferences() : store_(std::make_unique<Store>()) {}

Preferences::~Preferences() = default;

Preferences& Preferences::shared() {
  // Never destroyed: threads may still ask for it while the process exits.
  static auto& instance = *new Preferences;
  return instance;
}

std::optional<bool> Preferences::boolean(std::string_view key) {
  return store_
      ->find<bool>(key, kBoolean, [](const DatabaseRow& row) { return row.integer(0) != 0; })
      .value_or(std::nullopt);
}

std::optional<std::int64_t> Preferences::integer(std::string_view key) {
  return readInteger(key).value_or(std::nullopt);
}

std::optional<Bytes> Preferences::bytes(std::string_view key) {
  return readBytes(key).value_or(std::nullopt);
}

Result<std::optional<std::int64_t>> Preferences::readInteger(std::string_view key) {
  return store_->find<std::int64_t>(key, kInteger,
                                    [](const DatabaseRow& row) { return row.integer(0); });
}

Result<std::optional<Bytes>> Preferences::readBytes(std::string_view key) {
  return store_->find<Bytes>(key, kBytes, [](const DatabaseRow& row) {
    const auto view = row.bytes(0);
    return Bytes(view.begin(), view.end());
  });
}

void Preferences::set(std::string_view key, bool value) {
  store_->write(kSet, {key, kBoolean, std::int64_t{value}});
}

void Preferences::set(std::string_view key, std::int64_t value) {
  store_->write(kSet, {key, kInteger, value});
}

void Preferences::set(std::string_view key, ByteView value) {
  store_->write(kSet, {key, kBytes, value});
}

void Preferences::remove(std::string_view key) { store_->write(kRemove, {key}); }

}  // namespace orvane
