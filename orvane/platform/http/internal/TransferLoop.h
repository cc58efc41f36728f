#pragma once

#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/platform/http/internal/Transfer.h>

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace orvane::platform {

/// Drives every transfer of every session.
///
/// One I/O thread waits for sockets and timers. A new transfer takes its first steps on the thread
/// that starts it: what it sends is still in that processor's cache, and no other thread has to be
/// woken for it. A lock makes sure that one thread at a time is inside the client library; nobody
/// waits while holding it.
///
/// Any thread may call the public operations; they return at once. Reports are made without the
/// lock, by whichever thread found the transfer to have ended. When the process exits the I/O
/// thread stops, and of the transfers still under way those that `reportAtExit` end with the code
/// cancelled.
class TransferLoop {
 public:
  static TransferLoop& shared();

  void start(std::shared_ptr<Transfer> transfer);

  /// Ends the transfer with the code cancelled, unless it has ended already.
  void cancel(const Transfer& transfer);

  /// Bytes per second of the bodies sent and received, if limited.
  void setRates(std::optional<std::int64_t> sending, std::optional<std::int64_t> receiving);

  /// Frees a connection cache that no transfer uses any more.
  void release(CURLSH* connections);

 private:
  using Clock = Transfer::Clock;
  /// A transfer that has ended, kept until it can be reported without the lock.
  struct Ended {
    std::shared_ptr<Transfer> transfer;
    Result<HttpResponse> result;
  };

  TransferLoop();
  /// Lets the I/O thread end before the libraries under it are torn down.
  void stop();
  void run();

  /// Takes the lock, lets `action()` use the client library, then reports what has ended.
  template <class Action>
  void act(Action&& action);

  // The rest needs the lock.
  /// Sets up what transfers need, unless that has been done. Fails, and may be tried again, when
  /// descriptors or threads have run out.
  [[nodiscard]] Result<void> open();
  void begin(std::shared_ptr<Transfer> transfer);
  void end(const Transfer& transfer, Result<HttpResponse> result);
  [[nodiscard]] CURL* takeHandle();
  void giveHandleBack(CURL* easy);
  void socketReady(int socket, int readiness);
  void timeHasCome();
  void endCompleted();
  void endStalled(Clock::time_point now);
  void driveAll();
  void armTimer();
  void watch(curl_socket_t socket, int interest) const;
  static int onSocket(CURL* easy, curl_socket_t socket, int interest, void* self, void* unused);
  static int onTimer(CURLM* multi, long milliseconds, void* self);

  FileDescriptor epoll_;
  FileDescriptor timer_;
  FileDescriptor stopEvent_;

  std::mutex mutex_;
  bool stopped_ = false;
  CURLM* multi_ = nullptr;
  RateGates gates_;
  std::vector<std::shared_ptr<Transfer>> active_;
  std::vector<Ended> ended_;
  std::vector<CURL*> idleHandles_;
  Clock::time_point libraryDeadline_ = Clock::time_point::max();
  Clock::time_point nextStallCheck_ = Clock::time_point::max();
  Clock::time_point armed_ = Clock::time_point::max();

  std::thread thread_;
};

}  // namespace orvane::platform
