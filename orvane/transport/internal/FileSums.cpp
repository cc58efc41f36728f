#include <orvane/transport/internal/FileSums.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/transport/S3Error.h>

#include <algorithm>
#include <utility>

namespace orvane::transport {
namespace {

constexpr std::size_t kBufferSize = std::size_t{256} << 10;
constexpr std::int64_t kStep = std::int64_t{8} << 20;

}  // namespace

Result<bool> FileSums::step() {
  if (sums_.size() == sizes_.size()) return false;
  if (!reader_) {
    auto opened = platform::FileReader::open(path_);
    if (!opened) return std::unexpected(std::move(opened.error()));
    reader_ = std::move(*opened);
    buffer_.resize(kBufferSize);
  }
  const auto size = sizes_[sums_.size()];
  const auto end = std::min(size, done_ + kStep);
  while (done_ < end) {
    const auto wanted = std::min(buffer_.size(), static_cast<std::size_t>(end - done_));
    const auto count = reader_->read(std::span(buffer_).first(wanted));
    if (!count) return std::unexpected(count.error());
    if (*count == 0) return std::unexpected(S3Error::fileReadError());
    sum_.add(std::span(buffer_).first(*count));
    done_ += static_cast<std::int64_t>(*count);
  }
  if (done_ == size) {
    sums_.push_back(platform::hexString(std::exchange(sum_, {}).digest()));
    done_ = 0;
  }
  return sums_.size() < sizes_.size();
}

}  // namespace orvane::transport
