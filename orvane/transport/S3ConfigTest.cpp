#include <orvane/transport/S3Config.h>

#include <gtest/gtest.h>

namespace orvane {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

const S3Config kConfig{.bucket = "photos",
                       .region = "eu-1",
                       .accessKey = "AK",
                       .secretKey = "s\"/\\\u00e8",
                       .prefix = "backup/",
                       .endpoint = "https://store.example:9000/base/"};

S3Config with(std::string S3Config::* member, const std::string& value) {
  auto config = kConfig;
  config.*member = value;
  return config;
}

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
  EXPECT_EQ(with(&S3Config::bucket, "\xFF").toJson(), "");
}

TEST(S3Config, FromJsonTakesWholeConfigurationsOnly) {
  const std::string members =
      R"({"bucket":"b","region":"r","accessKey":"a","secretKey":"s","endpoint":"e")";
  for (const std::string rest :
       {R"(,"prefix":""})", R"(,"prefix":"","tenantName":null,"more":[1,{"x":2}]} )",
        R"(,"prefix":"","tenantName":"x","tenantName":null})"}) {
    EXPECT_TRUE(S3Config::fromJson(members + rest)) << rest;
  }
  for (const std::string rest :
       {"}", R"(,"prefix":null})", R"(,"prefix":"","bucket":7})", R"(,"prefix":"","tenantName":7})",
        R"(,"prefix":"","more":tru})", R"(,"prefix":""} {})", ",\"prefix\":\"\xFF\"}"}) {
    EXPECT_FALSE(S3Config::fromJson(members + rest)) << rest;
  }
  EXPECT_FALSE(S3Config::fromJson("[]") || S3Config::fromJson(""));
}

TEST(S3Config, IsValidNeedsAllButThePrefix) {
  EXPECT_TRUE(with(&S3Config::prefix, "").isValid());
  for (const auto member : {&S3Config::bucket, &S3Config::region, &S3Config::accessKey,
                            &S3Config::secretKey, &S3Config::endpoint}) {
    EXPECT_FALSE(with(member, "").isValid());
  }
}

TEST(S3Config, HostIsTheEndpointsHostNameOrTheEndpoint) {
  for (const auto& [endpoint, host] : Pairs{{"https://store.example:9000/base", "store.example"},
                                            {"http://[::1]:8080/", "[::1]"},
                                            {"store.example:9000", "store.example:9000"},
                                            {"https://with space/", "https://with space/"},
                                            {"", ""}}) {
    EXPECT_EQ(with(&S3Config::endpoint, endpoint).host(), host);
  }
}

TEST(S3Config, UrlEscapesWhatAPathCannotHold) {
  for (const auto& [key, escaped] :
       Pairs{{"2024/IMG 1.jpg", "2024/IMG%201.jpg"},
             {"!$&'()*+,-./:=@_~", "!$&'()*+,-./:=@_~"},
             {"a;b?c#d[e]f%20\"<>\\^`{|}", "a%3Bb%3Fc%23d%5Be%5Df%2520%22%3C%3E%5C%5E%60%7B%7C%7D"},
             {"//x/../y/", "//x/../y/"},
             {"citt\u00e0", "citt%C3%A0"},
             {"", ""}}) {
    EXPECT_EQ(urlText(kConfig, key), "https://store.example:9000/base/photos/backup/" + escaped);
  }
}

TEST(S3Config, UrlJoinsEndpointBucketPrefixAndKey) {
  auto config = with(&S3Config::endpoint, "///https://store.example///");
  config.prefix = "backup";
  EXPECT_EQ(urlText(config, "x.jpg"), "https://store.example/photos/backupx.jpg");
  config.prefix = "";
  EXPECT_EQ(urlText(config, "x.jpg"), "https://store.example/photos/x.jpg");
  for (const auto* bucket : {"with space", "citt\u00e0", "50%"}) {
    EXPECT_EQ(urlText(with(&S3Config::bucket, bucket), "x.jpg"), "(absent)");
  }
}

}  // namespace
}  // namespace orvane
