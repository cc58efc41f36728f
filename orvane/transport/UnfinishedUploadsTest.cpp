#include <orvane/transport/UnfinishedUploads.h>

#include "support/FaultServer.h"
#include "support/StoreConfig.h"
#include "support/Test.h"

namespace orvane {
namespace {

TEST(UnfinishedUploads, AreListedPageByPage) {
  testing::FaultServer server;
  const auto upload = [](const std::string& key, const std::string& id, const std::string& begun) {
    return "<Upload><Key>" + key + "</Key><UploadId>" + id + "</UploadId><Initiated>" + begun +
           "</Initiated></Upload>";
  };
  server.queue(testing::answer(
      200, upload("p/you &amp; me", "1", "2026-01-31T12:00:05.123Z") +
               upload("p/b", "2", "some day") + upload("", "3", "2026-01-31T12:00:05Z") +
               "<IsTruncated>true</IsTruncated><NextKeyMarker>p/you &amp; me</NextKeyMarker>"
               "<NextUploadIdMarker>1</NextUploadIdMarker>"));
  server.queue(testing::answer(200, upload("p/z", "4", "1970-01-01T00:00:01Z")));
  const auto config = testing::configFor(server.url());
  const auto uploads = listUnfinishedUploads(config, "p/").value();
  ASSERT_EQ(uploads.size(), 2U);
  EXPECT_EQ(uploads[0].key, "p/you & me");
  EXPECT_EQ(uploads[0].uploadId, "1");
  EXPECT_EQ(uploads[0].begun.time_since_epoch(), 1769860805s);
  EXPECT_EQ(uploads[1].key, "p/z");
  EXPECT_EQ(server.requests()[0].target(), "/photos?uploads&prefix=p%2F");
  EXPECT_EQ(server.requests()[1].target(),
            "/photos?uploads&prefix=p%2F&key-marker=p%2Fyou%20%26%20me&upload-id-marker=1");
  // Pages that lead back.
  for (const char* marker : {"a", "b", "a"}) {
    const std::string next(marker);
    server.queue(testing::answer(
        200, "<IsTruncated>true</IsTruncated><NextKeyMarker>" + next + "</NextKeyMarker>"));
  }
  EXPECT_TRUE(listUnfinishedUploads(config, "").value().empty());
  server.queue(testing::answer(403));
  EXPECT_EQ(listUnfinishedUploads(config, "").error().description(), "HTTP error 403");
}

}  // namespace
}  // namespace orvane
