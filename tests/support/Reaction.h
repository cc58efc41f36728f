#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::testing {

/// A door that a test opens once, before or after somebody waits at it. Copies share the door.
class Gate {
 public:
  void open() const;
  /// Blocks until the door is open or a stop is requested.
  void wait(const std::stop_token& stop) const;

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable_any changed;
    bool open = false;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// What a `FaultServer` does with one request once its head is there: it reads the body, sends
/// `answer` byte for byte as it stands, and ends as `end` says. As it comes, it reads everything,
/// sends everything and keeps the connection.
///
///     Reaction{.answer = answerText(200, "hello"), .sendAtMost = 10, .end = Reaction::End::reset}
struct Reaction {
  static constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

  enum class End {
    keepOpen,  ///< Reads what is left of the body, then the next request.
    close,     ///< Reads what is left of the body, then closes in order.
    reset,     ///< The client receives what was sent, then a reset.
    stall,     ///< Neither reads nor sends until the server goes.
    repeat,    ///< Sends the answer again and again until the client goes.
  };
  /// `piece` bytes at a time with `pause` between them.
  struct Pace {
    std::size_t piece = kAll;
    std::chrono::milliseconds pause{0};
  };

  std::string answer = {};
  std::size_t readAtMost = kAll;  ///< Bytes of the body that are read before the answer.
  Pace readPace = {};
  std::optional<Gate> gate = {};  ///< Where the answer waits.
  std::size_t sendAtMost = kAll;  ///< Bytes of `answer` that are sent.
  Pace sendPace = {};
  End end = End::keepOpen;
};

using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// The bytes of an answer: status line, `headers`, a matching Content-Length (none with 204 and
/// 304), `body`. For a wrong Content-Length or none, write the bytes by hand.
[[nodiscard]] std::string answerText(int status, std::string_view body = {},
                                     const HeaderList& headers = {});

/// Sends `answerText`.
[[nodiscard]] Reaction answer(int status, std::string_view body = {},
                              const HeaderList& headers = {});
/// Resets the connection when so many bytes of the body are read; nothing is sent.
[[nodiscard]] Reaction resetAfter(std::size_t bodyBytes);
/// Stalls when so many bytes of the body are read; nothing is sent.
[[nodiscard]] Reaction stallAfter(std::size_t bodyBytes);

}  // namespace orvane::testing
