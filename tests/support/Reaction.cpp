#include "support/Reaction.h"

namespace orvane::testing {

void Gate::open() const {
  const std::lock_guard lock(state_->mutex);
  state_->open = true;
  state_->changed.notify_all();
}

void Gate::wait(const std::stop_token& stop) const {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait(lock, stop, [this] { return state_->open; });
}

std::string answerText(int status, std::string_view body, const HeaderList& headers) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n";
  for (const auto& [name, value] : headers) text += name + ": " + value + "\r\n";
  if (status != 204 && status != 304) {
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return text.append("\r\n").append(body);
}

Reaction answer(int status, std::string_view body, const HeaderList& headers) {
  return {.answer = answerText(status, body, headers)};
}

Reaction resetAfter(std::size_t bodyBytes) {
  return {.readAtMost = bodyBytes, .end = Reaction::End::reset};
}

Reaction stallAfter(std::size_t bodyBytes) {
  return {.readAtMost = bodyBytes, .end = Reaction::End::stall};
}

}  // namespace orvane::testing
