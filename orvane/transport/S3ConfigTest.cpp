#include <orvane/transport/S3Config.h>

#include "support/Test.h"

namespace orvane {
namespace {

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

std::string urlOf(const S3Config& config, std::string_view key = "x.jpg") {
  const auto url = config.url(key);
  return url ? url->text() : "(absent)";
}

TEST(S3Config, JsonRoundTripsWithAndWithoutTenant) {
  EXPECT_EQ(kConfig.toJson().find("tenantName"), std::string::npos);
  EXPECT_EQ(S3Config::fromJson(kConfig.toJson()), kConfig);
  auto tenant = kConfig;
  tenant.tenantName = "";
  EXPECT_EQ(S3Config::fromJson(tenant.toJson()), tenant);
  EXPECT_NE(tenant, kConfig);
  EXPECT_EQ(with(&S3Config::bucket, "\xFF").toJson(), "");
}

TEST(S3Config, FromJsonTakesWholeConfigurationsOnly) {
  const std::string members =
      R"({"bucket":"b","region":"r","accessKey":"a","secretKey":"s","endpoint":"e")";
  for (const std::string rest : {R"(,"prefix":"","tenantName":null,"more":[1,{"x":2}]} )",
                                 R"(,"prefix":"","tenantName":"x","tenantName":null})"}) {
    EXPECT_TRUE(S3Config::fromJson(members + rest)) << rest;
  }
  for (const std::string rest :
       {"}", R"(,"prefix":null})", R"(,"prefix":"","bucket":7})", R"(,"prefix":"","tenantName":7})",
        R"(,"prefix":"","more":tru})", R"(,"prefix":""} {})", ",\"prefix\":\"\xFF\"}"}) {
    EXPECT_FALSE(S3Config::fromJson(members + rest)) << rest;
  }
}

TEST(S3Config, IsValidNeedsAllButThePrefix) {
  EXPECT_TRUE(with(&S3Config::prefix, "").isValid());
  for (const auto member : {&S3Config::bucket, &S3Config::region, &S3Config::accessKey,
                            &S3Config::secretKey, &S3Config::endpoint}) {
    EXPECT_FALSE(with(member, "").isValid());
  }
}

TEST(S3Config, HostIsTheEndpointsHostNameOrTheEndpoint) {
  EXPECT_EQ(with(&S3Config::endpoint, "https://store.example:9000/b").host(), "store.example");
  EXPECT_EQ(with(&S3Config::endpoint, "store.example:9000").host(), "store.example:9000");
  EXPECT_EQ(with(&S3Config::endpoint, "https://with space/").host(), "https://with space/");
}

TEST(S3Config, UrlJoinsEndpointBucketPrefixAndKeyAndEscapesWhatAPathCannotHold) {
  const std::string start = "https://store.example:9000/base/photos/backup/";
  for (const auto& [key, escaped] : std::map<std::string, std::string>{
           {"!$&'()*+,-./:=@_~", "!$&'()*+,-./:=@_~"},
           {"a;b?c#d[e]f%20\"<>\\^`{|}", "a%3Bb%3Fc%23d%5Be%5Df%2520%22%3C%3E%5C%5E%60%7B%7C%7D"},
           {"//x/../y z/", "//x/../y%20z/"},
           {"citt\u00e0", "citt%C3%A0"},
           {"", ""}}) {
    EXPECT_EQ(urlOf(kConfig, key), start + escaped);
  }
  EXPECT_EQ(urlOf(with(&S3Config::endpoint, "///https://a.example///")),
            "https://a.example/photos/backup/x.jpg");
  EXPECT_EQ(urlOf(with(&S3Config::prefix, "b \u00e8")),
            "https://store.example:9000/base/photos/b%20%C3%A8x.jpg");
  EXPECT_EQ(urlOf(with(&S3Config::bucket, "50%")), "(absent)");
}

}  // namespace
}  // namespace orvane
