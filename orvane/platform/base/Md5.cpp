#include <orvane/platform/base/Md5.h>

#include <openssl/evp.h>

#include <new>

namespace orvane::platform {

Md5Digest md5(ByteView data) {
  Md5Digest digest;
  auto* const output = reinterpret_cast<unsigned char*>(digest.data());
  // Fails only when memory runs out.
  if (EVP_Digest(data.data(), data.size(), output, nullptr, EVP_md5(), nullptr) != 1) {
    throw std::bad_alloc();
  }
  return digest;
}

}  // namespace orvane::platform
