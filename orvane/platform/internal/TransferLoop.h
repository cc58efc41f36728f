#pragma once

#include <curl/curl.h>
#include <orvane/platform/internal/Transfer.h>

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace orvane::platform {

/// The process's one I/O thread: drives every transfer of every session.
///
/// Any thread may call the public operations; they return at once. When the process exits the
/// thread stops, and transfers still under way end without a report.
class TransferLoop {
 public:
  static TransferLoop& shared();

  void start(std::shared_ptr<Transfer> transfer);

  /// Ends the transfer with the code cancelled, unless it has ended already.
  void cancel(std::shared_ptr<Transfer> transfer);

  /// Frees a connection cache that no transfer uses any more.
  void release(CURLSH* connections);

 private:
  using Command = std::move_only_function<void(TransferLoop&)>;
  struct StopAtExit;

  TransferLoop();
  void enqueue(Command command);
  void stop();

  // The rest runs on the I/O thread.
  void run();
  void runCommands();
  void begin(std::shared_ptr<Transfer> transfer);
  void finishCompleted();
  void endStalled();
  /// Takes the transfer out of the loop; the handle goes back to the idle ones.
  std::shared_ptr<Transfer> remove(const Transfer* transfer);
  [[nodiscard]] int pollTimeout() const;

  std::mutex mutex_;
  std::vector<Command> commands_;
  bool stopped_ = false;

  CURLM* multi_;
  std::vector<std::shared_ptr<Transfer>> active_;
  std::vector<CURL*> idleHandles_;
  Transfer::Clock::time_point nextStallCheck_ = Transfer::Clock::time_point::max();
  std::thread thread_;
};

}  // namespace orvane::platform
