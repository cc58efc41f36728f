#pragma once

#include <orvane/platform/base/Bytes.h>

#include <array>
#include <cstddef>
#include <memory>

struct evp_md_ctx_st;

namespace orvane::platform {

using Md5Digest = std::array<std::byte, 16>;

/// MD5 (RFC 1321), for comparing with the ETags of object stores: it protects against nobody who
/// means harm. One thread at a time.
class Md5 {
 public:
  Md5();

  void add(ByteView data);
  /// Of everything added. Call once, at the end.
  [[nodiscard]] Md5Digest digest();

 private:
  struct Deleter {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };

  std::unique_ptr<evp_md_ctx_st, Deleter> context_;
};

/// The sum of a text as a whole. Any thread may call it.
[[nodiscard]] Md5Digest md5(ByteView data);

}  // namespace orvane::platform
