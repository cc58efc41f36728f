#pragma once

#include <orvane/Error.h>
#include <orvane/platform/http/HttpResponse.h>
#include <orvane/transport/internal/ModificationTime.h>

#include <cstdint>
#include <optional>
#include <string>

namespace orvane::transport {

/// One version of an object, as the head of a response describes it.
struct ObjectVersion {
  std::string eTagField;  ///< As received, with quotes: for `If-Match`.
  std::int64_t size = 0;
  std::optional<FileTime> fileModified;  ///< Of the file that was uploaded.
  std::optional<FileTime> lastModified;  ///< Of the object.
  /// Whether an ETag in the form of an MD5 sum is that of the content. Where the store encrypts
  /// with a key of its own service or the user's, it is not.
  bool eTagIsOfContent = true;

  [[nodiscard]] std::string eTag() const;
  /// What a copy's modification time is to be.
  [[nodiscard]] std::optional<FileTime> modified() const {
    return fileModified ? fileModified : lastModified;
  }

  friend bool operator==(const ObjectVersion& a, const ObjectVersion& b) {
    return a.eTagField == b.eTagField && a.size == b.size;
  }
};

/// Bytes of an object: those from `first` on, `length` of them or as many as the object has.
struct ByteRange {
  std::int64_t first = 0;
  std::int64_t length = 0;

  [[nodiscard]] std::string headerValue() const;
};

/// Reads the response to HEAD.
[[nodiscard]] Result<ObjectVersion> versionInHead(const HttpResponse& response);

/// Reads the response to GET of a range, which is an error unless it holds exactly that range.
[[nodiscard]] Result<ObjectVersion> versionInRange(const HttpResponse& response, ByteRange range);

}  // namespace orvane::transport
