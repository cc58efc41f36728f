#include <orvane/platform/base/Digest.h>

#include <openssl/evp.h>

#include <algorithm>
#include <new>
#include <string_view>

namespace orvane::platform {

Digest sha256(ByteView data) {
  // Fetched once, which costs more than hashing a small message; never freed, since threads may
  // still hash while the process exits.
  static const EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  Digest digest;
  auto* const output = reinterpret_cast<unsigned char*>(digest.data());
  // Fails only when memory runs out.
  if (EVP_Digest(data.data(), data.size(), output, nullptr, algorithm, nullptr) != 1) {
    throw std::bad_alloc();
  }
  return digest;
}

// Written over the digest: OpenSSL's own HMAC spends twice the time on setting up its key, and
// looks for its digest anew, which fails once the process exits.
Digest hmacSha256(ByteView key, ByteView data) {
  constexpr std::size_t kBlockSize = 64;
  Bytes inner(kBlockSize);
  std::ranges::copy(key.size() > kBlockSize ? ByteView(sha256(key)) : key, inner.begin());
  Bytes outer = inner;
  for (auto& byte : inner) byte ^= std::byte{0x36};
  for (auto& byte : outer) byte ^= std::byte{0x5C};
  inner.insert(inner.end(), data.begin(), data.end());
  const auto digest = sha256(inner);
  outer.insert(outer.end(), digest.begin(), digest.end());
  return sha256(outer);
}

std::string hexString(ByteView bytes) {
  static constexpr auto kPairs = [] {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = {kDigits[i / 16], kDigits[i % 16]};
    return pairs;
  }();
  std::string text(bytes.size() * 2, '\0');
  auto* output = text.data();
  for (const auto byte : bytes) {
    output = std::ranges::copy(kPairs[std::to_integer<std::size_t>(byte)], output).out;
  }
  return text;
}

}  // namespace orvane::platform
