#include <orvane/platform/http/internal/Transfer.h>

#include <orvane/platform/base/Ascii.h>
#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/http/TrustedAuthorities.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/platform/http/internal/CurlError.h>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

namespace orvane::platform {
namespace {

using namespace std::chrono_literals;

/// Up to this the body leaves together with the head; above, in pieces of the library's buffer.
constexpr std::size_t kSmallBody = std::size_t{64} * 1024;
constexpr long kUploadBufferSize = 512L * 1024;
/// The client library counts the milliseconds in an int.
constexpr std::chrono::milliseconds kLongestTimeout = std::chrono::days(24);
constexpr long kReceiveBufferSize = 64L * 1024;
/// Errors begin here.
constexpr int kFirstFailureStatus = 300;
/// So much is kept of a body that nobody needs whole: enough for any text that explains an error.
constexpr std::size_t kBodyKept = std::size_t{1} << 20;

bool isToken(std::string_view text) {
  constexpr std::string_view kAllowed =
      "!#$%&'*+-.^_`|~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return !text.empty() && text.find_first_not_of(kAllowed) == std::string_view::npos;
}

bool breaksLine(std::string_view text) {
  constexpr std::string_view kBreaks("\r\n\0", 3);
  return text.find_first_of(kBreaks) != std::string_view::npos;
}

/// Tells `easy` whom to trust.
void setAuthorities(CURL* easy) {
  const std::string* const pem = trustedAuthorities();
  if (pem == nullptr) return;
  // The library has no way to add to the system's bundle, so this one takes its place.
  curl_blob blob{.data = const_cast<char*>(pem->data()),  // NOLINT: only read
                 .len = pem->size(),
                 .flags = CURL_BLOB_NOCOPY};
  curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
  curl_easy_setopt(easy, CURLOPT_PROXY_CAINFO_BLOB, &blob);
}

}  // namespace

Transfer::Transfer(std::shared_ptr<ConnectionCache> connections, HttpRequest request,
                   SharedBytes body, Sent sent, Finished finished)
    : connections_(std::move(connections)),
      request_(std::move(request)),
      body_(std::move(body)),
      sent_(std::move(sent)),
      finished_(std::move(finished)) {
  request_.timeout = std::clamp(request_.timeout, 1ms, kLongestTimeout);
}

std::optional<Error> Transfer::refusal() const {
  if (!isToken(request_.method)) return urlError(UrlErrorCode::badURL, "method");
  for (const auto& [name, value] : request_.headers) {
    // The body has a length; saying otherwise would let the two ends disagree where it stops.
    const bool misframed = equalIgnoringCase(name, "Transfer-Encoding");
    if (!isToken(name) || breaksLine(value) || misframed)
      return urlError(UrlErrorCode::badURL, "header field");
  }
  const auto scheme = request_.url.scheme();
  if (scheme.empty() || request_.url.host().empty()) {
    return urlError(UrlErrorCode::badURL, "no scheme or host");
  }
  if (!equalIgnoringCase(scheme, "http") && !equalIgnoringCase(scheme, "https")) {
    return urlError(UrlErrorCode::unsupportedURL);
  }
  return std::nullopt;
}

void Transfer::attach(CURL* easy, RateGates& gates) {
  easy_ = easy;
  gates_ = &gates;
  lastMove_ = Clock::now();
  curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy, CURLOPT_SHARE, connections_->handle());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(easy, CURLOPT_URL, request_.url.text().c_str());
  curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(easy, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  // Ending a transfer must not wait for a name lookup, which nothing can interrupt.
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.timeout.count()));
  curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, kReceiveBufferSize);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &Transfer::onConnected);
  curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &Transfer::onOpen);
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
  WireConnection::watchClosing(easy);
  setAuthorities(easy);
  setBody();
  setHeaders();
}

void Transfer::setBody() {
  curl_easy_setopt(easy_, CURLOPT_SEEKFUNCTION, &Transfer::onSeek);
  curl_easy_setopt(easy_, CURLOPT_SEEKDATA, this);
  const bool carriesBody =
      body_.size() > 0 || request_.method == "PUT" || request_.method == "POST";
  if (request_.method == "HEAD") {
    curl_easy_setopt(easy_, CURLOPT_NOBODY, 1L);
  } else if (carriesBody) {
    // A post, whatever the method.
    curl_easy_setopt(easy_, CURLOPT_POST, 1L);
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
    if (body_.size() <= kSmallBody && !gates_->sending.isLimited()) {
      curl_easy_setopt(easy_, CURLOPT_POSTFIELDS,
                       body_.size() > 0 ? textOf(body_.view()).data() : "");
    } else {
      curl_easy_setopt(easy_, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferSize);
      curl_easy_setopt(easy_, CURLOPT_READFUNCTION, &Transfer::onRead);
      curl_easy_setopt(easy_, CURLOPT_READDATA, this);
    }
  }
  curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

void Transfer::setHeaders() {
  for (const auto& [name, value] : request_.headers) {
    if (equalIgnoringCase(name, "Content-Length")) continue;  // The body itself says its length.
    // A bare "Name:" would remove the field; "Name;" sends it without a value.
    const bool blank = value.find_first_not_of(" \t") == std::string::npos;
    std::string line = name;
    addHeader(blank ? line.append(";") : line.append(": ").append(value));
  }
  addHeader("Expect:");
  addHeader("Accept:");
  if (!request_.headers.get("Content-Type")) addHeader("Content-Type:");
  curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_.get());
}

void Transfer::addHeader(const std::string& line) {
  curl_slist* longer = curl_slist_append(headers_.get(), line.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(headers_.release());
  headers_.reset(longer);
}

bool Transfer::maySendAgain(CURLcode code) const {
  const bool keptConnection = connection_ && opened_.empty();
  if (code == CURLE_OK || !keptConnection || sentTwice_ || request_.method == "POST") return false;
  // All that a peer sends, its close too, acknowledges what has reached it by then. If something
  // came, and it acknowledged nothing, the peer had closed before any of the request was there. A
  // reset alone proves nothing: the peer may have read everything and not acknowledged it yet.
  const auto moved = connection_->moved();
  return !head_.hasBegun() && moved.acknowledged == movedBefore_.acknowledged &&
         moved.received > movedBefore_.received;
}

void Transfer::detach() {
  gates_->sending.leave(sending_);
  gates_->receiving.leave(receiving_);
}

void Transfer::resume() {
  const int paused = (sending_.isWaiting ? CURLPAUSE_SEND : CURLPAUSE_CONT) |
                     (receiving_.isWaiting ? CURLPAUSE_RECV : CURLPAUSE_CONT);
  curl_easy_pause(easy_, paused);
}

void Transfer::prepareSecondSend() {
  detach();
  sentTwice_ = true;
  libraryBeganAnew_ = false;
  connection_ = nullptr;
  bytesRead_ = 0;
  curl_easy_setopt(easy_, CURLOPT_FRESH_CONNECT, 1L);
}

Result<HttpResponse> Transfer::result(CURLcode code) {
  if (answerTooLong_ || (!head_.isComplete() && isLineTooLong(easy_, code))) {
    return std::unexpected(urlError(UrlErrorCode::dataLengthExceedsMaximum));
  }
  if (answerIsEnough_) code = CURLE_OK;
  // The library is content with a head that breaks off.
  if (code == CURLE_OK && !head_.isComplete()) code = CURLE_PARTIAL_FILE;
  if (code == CURLE_OK) return takeResponse();
  if (libraryBeganAnew_) code = CURLE_GOT_NOTHING;
  return std::unexpected(errorOf(easy_, code, openFailure_));
}

void Transfer::report(Result<HttpResponse> result) {
  body_ = {};
  sent_ = nullptr;
  if (finished_) std::exchange(finished_, nullptr)(std::move(result));
}

HttpResponse Transfer::takeResponse() {
  HttpResponse response;
  response.status = status();
  response.headers = head_.takeHeaders();
  if (answer_.size() < bodyBytes_) answer_.resize(wholeCharacters(answer_).size());
  response.body = std::move(answer_);
  return response;
}

int Transfer::status() const {
  long status = 0;
  curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

std::chrono::milliseconds Transfer::checkInterval() const {
  return std::clamp(request_.timeout / 8, 10ms, 1000ms);
}

bool Transfer::hasStalled(Clock::time_point now) {
  const auto moved = bytesMoved();
  if (moved != bytesAtLastMove_ || sending_.isWaiting || receiving_.isWaiting) {
    bytesAtLastMove_ = moved;
    lastMove_ = now;
  }
  return now - lastMove_ >= request_.timeout;
}

std::uint64_t Transfer::bytesMoved() const {
  const auto onWire = connection_ ? connection_->moved() : WireConnection::Bytes{};
  return static_cast<std::uint64_t>(bytesSent_ + bytesReceived_) + onWire.acknowledged +
         onWire.received;
}

std::size_t Transfer::onHeader(char* data, std::size_t size, std::size_t count, void* self) noexcept
    try {
  auto& transfer = *static_cast<Transfer*>(self);
  transfer.answerTooLong_ = !transfer.head_.read({data, size * count});
  return transfer.answerTooLong_ ? 0 : size * count;
} catch (const std::bad_alloc&) {
  static_cast<Transfer*>(self)->answerTooLong_ = true;
  return 0;
}

std::size_t Transfer::onRead(char* buffer, std::size_t size, std::size_t count,
                             void* self) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  // A server that refuses may reset the connection right behind its answer, and with the next
  // sending, which then fails, the answer would be lost. So what has arrived is read before.
  if (!transfer.head_.hasBegun() && transfer.connection_->hasArrivals()) {
    transfer.readsFirst_ = true;
    return CURL_READFUNC_PAUSE;
  }
  const auto rest = transfer.body_.view().subspan(transfer.bytesRead_);
  const auto wanted = std::min(rest.size(), size * count);
  if (wanted == 0) return 0;
  const auto admitted = transfer.gates_->sending.admit(transfer.sending_, wanted, Clock::now());
  if (admitted == 0) return CURL_READFUNC_PAUSE;
  const auto piece = rest.first(admitted);
  std::ranges::copy(textOf(piece), buffer);
  transfer.bytesRead_ += piece.size();
  return piece.size();
}

/// The library goes back to the start of a body before its handle sends anew; if that body was not
/// sent whole, even before the handle's next request, whether this has a body or not.
int Transfer::onSeek(void* self, curl_off_t offset, int origin) noexcept {
  if (origin != SEEK_SET || offset != 0) return CURL_SEEKFUNC_FAIL;
  static_cast<Transfer*>(self)->bytesRead_ = 0;
  return CURL_SEEKFUNC_OK;
}

std::size_t Transfer::onBody(char* data, std::size_t size, std::size_t count, void* self) noexcept
    try {
  auto& transfer = *static_cast<Transfer*>(self);
  const std::string_view piece(data, size * count);
  auto& gate = transfer.gates_->receiving;
  if (!gate.admitWhole(transfer.receiving_, piece.size(), Clock::now())) {
    return CURL_WRITEFUNC_PAUSE;
  }
  return transfer.receive(piece) ? piece.size() : 0;
} catch (const std::bad_alloc&) {
  static_cast<Transfer*>(self)->answerTooLong_ = true;
  return 0;
}

bool Transfer::receive(std::string_view piece) {
  const bool neededWhole = request_.needsWholeAnswer && status() < kFirstFailureStatus;
  bodyBytes_ += piece.size();
  if (bodyBytes_ > request_.maximumAnswerSize) {
    (neededWhole ? answerTooLong_ : answerIsEnough_) = true;
    return false;
  }
  answer_.append(neededWhole ? piece
                             : piece.substr(0, kBodyKept - std::min(kBodyKept, answer_.size())));
  return true;
}

curl_socket_t Transfer::onOpen(void* self, curlsocktype /*purpose*/,
                               curl_sockaddr* address) noexcept try {
  auto& transfer = *static_cast<Transfer*>(self);
  if (transfer.connection_) {
    transfer.libraryBeganAnew_ = true;
    return CURL_SOCKET_BAD;
  }
  transfer.opened_.reserve(transfer.opened_.size() + 1);
  const int opened = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  transfer.openFailure_ = opened < 0 ? errno : 0;
  if (opened >= 0) transfer.opened_.push_back(opened);
  return opened;
} catch (const std::bad_alloc&) {
  return CURL_SOCKET_BAD;
}

/// Runs before each sending of the request. The library begins anew by itself, up to six times,
/// when a kept connection ends without an answer, whatever the server has read by then; here it is
/// kept from that.
// The library gives the type.
// NOLINTNEXTLINE(readability-non-const-parameter)
int Transfer::onConnected(void* self, char* remoteAddress, char* localAddress, int remotePort,
                          int localPort) noexcept try {
  auto& transfer = *static_cast<Transfer*>(self);
  if (transfer.connection_) {
    transfer.libraryBeganAnew_ = true;
    return CURL_PREREQFUNC_ABORT;
  }
  transfer.connection_ = WireConnection::between({.localAddress = localAddress,
                                                  .localPort = localPort,
                                                  .remoteAddress = remoteAddress,
                                                  .remotePort = remotePort},
                                                 transfer.opened_);
  transfer.movedBefore_ = transfer.connection_->moved();
  return CURL_PREREQFUNC_OK;
} catch (const std::bad_alloc&) {
  return CURL_PREREQFUNC_ABORT;
}

int Transfer::onProgress(void* self, curl_off_t /*toReceive*/, curl_off_t received,
                         curl_off_t /*toSend*/, curl_off_t sent) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  transfer.bytesReceived_ = received;
  if (std::exchange(transfer.readsFirst_, false)) transfer.resume();
  // Less than before: the library has begun anew on a fresh connection.
  if (sent <= transfer.bytesSent_) return 0;
  transfer.bytesSent_ = sent;
  if (transfer.sent_) transfer.sent_(sent, static_cast<std::int64_t>(transfer.body_.size()));
  return 0;
}

}  // namespace orvane::platform
