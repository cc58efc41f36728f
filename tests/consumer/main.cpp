#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/vision/OnnxClassifier.h>
#include <orvane/platform/vision/SceneClassifier.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagging/TagLocalization.h>
#include <orvane/tagsync/TagSyncService.h>
#include <orvane/transport/S3Uploader.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdio>
#include <filesystem>

namespace {

int failures = 0;

void expect(bool condition, const char* what) {
  if (condition) return;
  std::printf("consumer: %s\n", what);
  ++failures;
}

/// Pictures: the worker has to be found, and the module behind ONNX models.
void look(const char* picture) {
  expect(orvane::SceneClassifier().classify(picture).has_value(), "the image worker");
  const auto model = orvane::OnnxClassifier::open("/nowhere/model.json");
  expect(!model && model.error().code() != static_cast<int>(orvane::OnnxProblem::unavailable),
         "the module for ONNX models");
}

void keepBooks() {
  orvane::UploadStore::shared().upsert({"id", "a.jpg", orvane::UploadStatus::pending, 0, 1});
  expect(orvane::UploadStore::shared().record("id").has_value(), "upload records");
  expect(orvane::DeviceUUID::shared().uuid().size() == 36, "the device's identity");
}

void tag() {
  auto& tags = orvane::TagDatabase::shared();
  expect(tags.initialize().has_value(), "the tag database");
  expect(tags.upsertTags("id", {{"mare", 0.9}}, "device").has_value(), "a tag");
  expect(orvane::TagLocalization::italianName("sky").has_value(), "translation");
}

/// No object store listens; sharing has to say so.
void share() {
  const orvane::S3Config config{"photos", "eu-west-1",          "key", "secret",
                                "",       "http://127.0.0.1:9", {}};
  boost::asio::io_context context;
  auto shared =
      boost::asio::co_spawn(context, orvane::TagSyncService::shared().downloadAllRemoteTags(config),
                            boost::asio::use_future);
  context.run();
  const auto outcome = shared.get();
  expect(!outcome && outcome.error().code() == -1004, "tag sync");
}

}  // namespace

// Uses every room of the library, so that a missing header, library or helper shows.
int main(int, char** arguments) {
  orvane::HostOptions options;
  options.dataDirectory = std::filesystem::current_path() / "consumer-data";
#ifdef CONSUMER_HELPER_FOLDER
  options.helperFolder = CONSUMER_HELPER_FOLDER;
#endif
  if (!orvane::HostApplication::configure(options)) return 1;
  look(arguments[1]);
  keepBooks();
  tag();
  share();
  if (failures == 0) std::puts("consumer works");
  return failures;
}
