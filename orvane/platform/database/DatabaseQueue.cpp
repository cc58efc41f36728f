#include <orvane/platform/database/DatabaseQueue.h>

#include <orvane/platform/concurrency/WorkQueue.h>
#include <orvane/platform/database/internal/SqliteError.h>

#include <atomic>
#include <thread>

namespace orvane::platform {

struct DatabaseQueue::State {
  explicit State(std::unique_ptr<Database> opened) : database(std::move(opened)) {}

  std::unique_ptr<Database> database;
  std::atomic<std::thread::id> running;  ///< The thread whose block runs.
  WorkQueue queue{1};
};

DatabaseQueue::DatabaseQueue(std::unique_ptr<State> state) : state_(std::move(state)) {}

DatabaseQueue::~DatabaseQueue() = default;

Result<std::unique_ptr<DatabaseQueue>> DatabaseQueue::open(const std::filesystem::path& file,
                                                           const Preparation& prepare) {
  auto database = Database::open(file);
  if (!database) return std::unexpected(std::move(database).error());
  if (prepare) {
    if (auto prepared = prepare(**database); !prepared) {
      return std::unexpected(std::move(prepared).error());
    }
  }
  return std::unique_ptr<DatabaseQueue>(
      new DatabaseQueue(std::make_unique<State>(std::move(*database))));
}

Result<void> DatabaseQueue::runInTransaction(Database::Transaction kind,
                                             const std::function<Result<void>(Database&)>& block) {
  if (state_->running == std::this_thread::get_id()) {
    return std::unexpected(
        sqliteError(SQLITE_MISUSE, "A block cannot call its own database queue"));
  }
  return state_->queue.sync([&]() -> Result<void> {
    auto& database = *state_->database;
    state_->running = std::this_thread::get_id();
    auto done = database.begin(kind);
    if (done) {
      done = block(database);
      if (done) done = database.commit();
      if (!done) database.rollBack();
    }
    state_->running = std::thread::id();
    return done;
  });
}

}  // namespace orvane::platform
