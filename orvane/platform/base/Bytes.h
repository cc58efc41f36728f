#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

/// Bytes that somebody owns.
using Bytes = std::vector<std::byte>;

/// Bytes that somebody else owns; valid only as long as the owner keeps them.
using ByteView = std::span<const std::byte>;

/// The bytes of a text, without terminator.
[[nodiscard]] inline ByteView bytesOf(std::string_view text) noexcept {
  return std::as_bytes(std::span(text));
}

/// Bytes seen as text; nothing is checked or copied.
[[nodiscard]] inline std::string_view textOf(ByteView bytes) noexcept {
  // Any object may be read as char.
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Bytes together with whatever keeps them alive, so that they can be handed on without a copy.
class SharedBytes {
 public:
  SharedBytes() = default;
  explicit SharedBytes(Bytes bytes) {
    auto owner = std::make_shared<const Bytes>(std::move(bytes));
    view_ = *owner;
    owner_ = std::move(owner);
  }
  SharedBytes(std::shared_ptr<const void> owner, ByteView view)
      : owner_(std::move(owner)), view_(view) {}

  [[nodiscard]] ByteView view() const noexcept { return view_; }
  [[nodiscard]] std::size_t size() const noexcept { return view_.size(); }

 private:
  std::shared_ptr<const void> owner_;
  ByteView view_;
};

}  // namespace orvane
