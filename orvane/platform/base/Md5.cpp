#include <orvane/platform/base/Md5.h>

#include <openssl/evp.h>

#include <new>

namespace orvane::platform {

Md5::Md5() : context_(EVP_MD_CTX_new()) {
  if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_md5(), nullptr) != 1) {
    throw std::bad_alloc();
  }
}

void Md5::add(ByteView data) { EVP_DigestUpdate(context_.get(), data.data(), data.size()); }

Md5Digest Md5::digest() {
  Md5Digest digest{};
  // OpenSSL counts in unsigned char.
  EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(digest.data()), nullptr);
  return digest;
}

void Md5::Deleter::operator()(evp_md_ctx_st* context) const noexcept { EVP_MD_CTX_free(context); }

Md5Digest md5(ByteView data) {
  Md5 sum;
  sum.add(data);
  return sum.digest();
}

}  // namespace orvane::platform
