#pragma once

#include <orvane/transport/S3Config.h>

#include "support/ObjectStore.h"

#include <string>

namespace orvane::testing {

/// For a server that looks at no signature.
inline S3Config configFor(const std::string& endpoint, const std::string& prefix = "") {
  return {.bucket = "photos",
          .region = "r",
          .accessKey = "a",
          .secretKey = "s",
          .prefix = prefix,
          .endpoint = endpoint};
}

inline S3Config configFor(const ObjectStore& store) {
  return {.bucket = store.bucket(),
          .region = store.region(),
          .accessKey = store.accessKey(),
          .secretKey = store.secretKey(),
          .prefix = store.prefix(),
          .endpoint = store.endpoint()};
}

}  // namespace orvane::testing
