#include <gtest/gtest.h>
#include <orvane/transport/S3Config.h>

namespace orvane {
namespace {

const S3Config kConfig{.bucket = "photos",
                       .region = "eu-1",
                       .accessKey = "AK",
                       .secretKey = "s\"/\\\u00e8",
                       .prefix = "backup/",
                       .endpoint = "https://store.example:9000/base/"};

std::string urlText(const S3Config& config, std::string_view key) {
  const auto url = config.url(key);
  return url ? url->text() : "(absent)";
}

TEST(S3Config, JsonRoundTripsWithAndWithoutTenant) {
  EXPECT_EQ(kConfig.toJson().find("tenantName"), std::string::npos);
  EXPECT_EQ(S3Config::fromJson(kConfig.toJson()), kConfig);
  auto tenant = kConfig;
  tenant.tenantName = "";
  EXPECT_NE(tenant.toJson().find(R"("tenantName":"")"), std::string::npos);
  EXPECT_EQ(S3Config::fromJson(tenant.toJson()), tenant);
  EXPECT_NE(tenant, kConfig);
  auto broken = kConfig;
  broken.bucket = "\xFF";
  EXPECT_EQ(broken.toJson(), "");
}

TEST(S3Config, FromJsonTakesWholeConfigurationsOnly) {
  const std::string members =
      R"("bucket":"b","region":"r","accessKey":"a","secretKey":"s","endpoint":"e")";
  const struct {
    std::string text;
    bool valid;
  } cases[] = {
      {"{" + members + R"(,"prefix":""})", true},
      {"\n{" + members + R"(,"prefix":"","tenantName":null,"more":[1,{"x":2}]} )", true},
      {"{" + members + R"(,"prefix":"","bucket":"last one counts"})", true},
      {"{" + members + R"(,"prefix":"","tenantName":"x","tenantName":null})", true},
      {"{" + members + R"(,"prefix":"","more":[123456789012345678901234567890,1e400]})", true},
      {"{" + members + "}", false},
      {"{" + members + R"(,"prefix":null})", false},
      {"{" + members + R"(,"prefix":"","bucket":7})", false},
      {"{" + members + R"(,"prefix":"","tenantName":7})", false},
      {"{" + members + R"(,"prefix":"","more":tru})", false},
      {"{" + members + R"(,"prefix":""} {})", false},
      {"{" + members + ",\"prefix\":\"\xFF\"}", false},
      {"[]", false},
      {"", false},
  };
  for (const auto& [text, valid] : cases) {
    EXPECT_EQ(S3Config::fromJson(text).has_value(), valid) << text;
  }
}

TEST(S3Config, IsValidNeedsAllButThePrefix) {
  auto config = kConfig;
  config.prefix = "";
  EXPECT_TRUE(config.isValid());
  for (auto member : {&S3Config::bucket, &S3Config::region, &S3Config::accessKey,
                      &S3Config::secretKey, &S3Config::endpoint}) {
    auto lacking = config;
    lacking.*member = "";
    EXPECT_FALSE(lacking.isValid());
  }
}

TEST(S3Config, HostIsTheEndpointsHostNameOrTheEndpoint) {
  const std::pair<std::string, std::string> cases[] = {
      {"https://store.example:9000/base", "store.example"},
      {"http://127.0.0.1:8080", "127.0.0.1"},
      {"http://[::1]:8080/", "[::1]"},
      {"store.example", "store.example"},
      {"store.example:9000", "store.example:9000"},
      {"https://with space/", "https://with space/"},
      {"", ""},
  };
  for (const auto& [endpoint, host] : cases) {
    auto config = kConfig;
    config.endpoint = endpoint;
    EXPECT_EQ(config.host(), host);
  }
}

TEST(S3Config, UrlEscapesWhatAPathCannotHold) {
  const std::string base = "https://store.example:9000/base/photos/backup/";
  const std::pair<std::string, std::string> cases[] = {
      {"2024/IMG 1.jpg", "2024/IMG%201.jpg"},
      {"a+b=c.jpg", "a+b=c.jpg"},
      {"!$&'()*+,-./:=@_~", "!$&'()*+,-./:=@_~"},
      {"a;b?c#d[e]f%20\"<>\\^`{|}", "a%3Bb%3Fc%23d%5Be%5Df%2520%22%3C%3E%5C%5E%60%7B%7C%7D"},
      {"//x//", "//x//"},
      {"../x/./y", "../x/./y"},
      {"citt\u00e0", "citt%C3%A0"},
      {"", ""},
  };
  for (const auto& [key, escaped] : cases) EXPECT_EQ(urlText(kConfig, key), base + escaped);
}

TEST(S3Config, UrlJoinsEndpointBucketPrefixAndKey) {
  auto config = kConfig;
  config.endpoint = "///https://store.example///";
  config.prefix = "backup";
  EXPECT_EQ(urlText(config, "x.jpg"), "https://store.example/photos/backupx.jpg");
  config.prefix = "";
  EXPECT_EQ(urlText(config, "x.jpg"), "https://store.example/photos/x.jpg");
  for (const auto* bucket : {"with space", "citt\u00e0", "50%"}) {
    config.bucket = bucket;
    EXPECT_EQ(urlText(config, "x.jpg"), "(absent)");
  }
}

}  // namespace
}  // namespace orvane
