#include <orvane/transport/S3MultipartUploader.h>

#include <cstdio>
#include <future>

// Links orvane::transport alone. There is no object store here: the upload has to say so.
int main(int, char** arguments) {
  const orvane::S3Config config{"photos", "eu-west-1",          "key", "secret",
                                "",       "http://127.0.0.1:9", {}};
  orvane::S3MultipartUploader uploader(config);
  std::promise<orvane::Result<void>> outcome;
  uploader.upload(arguments[1], "a.jpg", "image/jpeg", {},
                  [&outcome](const orvane::Result<void>& result) { outcome.set_value(result); });
  const auto result = outcome.get_future().get();
  if (result) return 1;
  std::puts(result.error().description().c_str());
  return result.error().code() == -1004 ? 0 : 1;
}
