#include <orvane/platform/base/Digest.h>

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <utility>

namespace orvane::platform {
namespace {

constexpr std::size_t kBlockSize = 64;

/// A digest context that is set up once per thread: fetching the algorithm and allocating the
/// context cost more than hashing a small message.
class Hasher {
 public:
  static Hasher& ofThisThread() {
    // Static objects that are destroyed after those of the thread may still sign a request.
    thread_local constinit Hasher* hasher = nullptr;
    thread_local const Cleanup cleanup(hasher);
    if (hasher == nullptr) hasher = new Hasher;
    return *hasher;
  }

  void begin() { check(EVP_DigestInit_ex2(context_.get(), nullptr, nullptr)); }
  void add(ByteView data) { check(EVP_DigestUpdate(context_.get(), data.data(), data.size())); }
  Digest finish() {
    Digest digest;
    check(EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(digest.data()),
                             nullptr));
    return digest;
  }

 private:
  struct Cleanup {
    explicit Cleanup(Hasher*& hasher) noexcept : hasher_(hasher) {}
    ~Cleanup() { delete std::exchange(hasher_, nullptr); }
    Cleanup(const Cleanup&) = delete;
    Cleanup& operator=(const Cleanup&) = delete;

    Hasher*& hasher_;
  };

  Hasher() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    // Never freed: threads may still hash while the process exits.
    static EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    check(context_ != nullptr && EVP_DigestInit_ex2(context_.get(), algorithm, nullptr) == 1);
  }

  /// SHA-256 on memory fails only when memory runs out.
  static void check(int succeeded) {
    if (succeeded != 1) throw std::bad_alloc();
  }

  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

}  // namespace

Digest sha256(ByteView data) {
  auto& hasher = Hasher::ofThisThread();
  hasher.begin();
  hasher.add(data);
  return hasher.finish();
}

// Written over the digest: OpenSSL's own HMAC spends twice the time on setting up its key.
Digest hmacSha256(ByteView key, ByteView data) {
  std::array<std::byte, kBlockSize + sizeof(Digest)> outer{};
  const auto pad = std::span(outer).first<kBlockSize>();
  std::ranges::copy(key.size() > kBlockSize ? ByteView(sha256(key)) : key, pad.begin());

  auto& hasher = Hasher::ofThisThread();
  for (auto& byte : pad) byte ^= std::byte{0x36};
  hasher.begin();
  hasher.add(pad);
  hasher.add(data);
  std::ranges::copy(hasher.finish(), outer.begin() + kBlockSize);

  for (auto& byte : pad) byte ^= std::byte{0x36 ^ 0x5C};
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
