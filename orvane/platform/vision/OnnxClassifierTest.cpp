#include <orvane/platform/vision/OnnxClassifier.h>

#include "support/OnnxModel.h"
#include "support/TemporaryDirectory.h"
#include "support/TestImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace orvane {
namespace {

using ::testing::HasSubstr;
using testing::testDirectory;
using testing::writeFile;

const std::string kSmallest = R"("model": "m.onnx", "labels": "l.txt", "width": 8, "height": 6)";

/// Three outputs: the mean of the first plane, that of the last, and what is left of both.
void writeModel() {
  writeFile(testDirectory() / "m.onnx",
            testing::onnxModelOfMeans({{1, 0, 0}, {0, 0, 1}, {1, 1, -1}}, {0, 0.25, -0.5}, 6, 8));
  writeFile(testDirectory() / "l.txt", "\xEF\xBB\xBFsky\r\n Water Body, lake \nNIGHT_sky");
}

auto openWith(const std::string& members) {
  writeFile(testDirectory() / "d.json", "{" + members + "}");
  return OnnxClassifier::open(testDirectory() / "d.json");
}

float sigmoid(float x) { return 1 / (1 + std::exp(-x)); }

TEST(OnnxClassifier, ComputesWhatTheModelSays) {
  writeModel();
  testing::writeImage(testDirectory() / "colour.png", 32, 24, {255, 0, 51});
  const float softmaxSum = std::exp(1.0F) + std::exp(0.45F) + std::exp(0.3F);
  const struct {
    const char* members;
    std::vector<ClassificationObservation> expected;
  } cases[] = {
      {R"("output": "none")", {{"sky", 1}, {"water_body", 0.45F}, {"night_sky", 0.3F}}},
      {R"("output": "none", "channels": "bgr", "fit": "stretch")",
       {{"water_body", 1}, {"sky", 0.2F}, {"night_sky", 0}}},
      {R"("output": "sigmoid")",
       {{"sky", sigmoid(1)}, {"water_body", sigmoid(0.45F)}, {"night_sky", sigmoid(0.3F)}}},
      {R"("output": "softmax")",
       {{"sky", std::exp(1.0F) / softmaxSum},
        {"water_body", std::exp(0.45F) / softmaxSum},
        {"night_sky", std::exp(0.3F) / softmaxSum}}},
      {R"("output": "none", "scale": 1e0, "mean": [250, 1, 41], "std": [10, 1, 50])",
       {{"sky", 0.5F}, {"water_body", 0.45F}, {"night_sky", 0}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.members);
    const auto classifier = openWith(kSmallest + ", " + c.members);
    ASSERT_TRUE(classifier) << classifier.error().description();
    const auto observations = (*classifier)->classify(testDirectory() / "colour.png");
    ASSERT_TRUE(observations) << observations.error().description();
    ASSERT_EQ(observations->size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(observations->at(i).identifier, c.expected[i].identifier);
      EXPECT_NEAR(observations->at(i).confidence, c.expected[i].confidence, 1e-5);
    }
  }
}

TEST(OnnxClassifier, SaysWhatIsWrongWithADescription) {
  writeModel();
  writeFile(testDirectory() / "garbage.onnx", "not a model");
  writeFile(testDirectory() / "empty.txt", "");
  writeFile(testDirectory() / "two.txt", "a\nb\n");
  writeFile(testDirectory() / "gap.txt", "a\n\nb\n");
  writeFile(testDirectory() / "latin.txt", "a\nb\nc\xE9\n");
  const auto with = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  const std::string good = kSmallest + R"(, "output": "none")";
  const struct {
    std::string members;
    OnnxProblem problem;
    const char* sentence;
  } cases[] = {
      {"", OnnxProblem::description, "d.json: not a JSON object with"},
      {good + "}", OnnxProblem::description, "d.json: not a JSON object with"},
      {kSmallest, OnnxProblem::description, "d.json: not a JSON object with"},
      {with(good, R"("m.onnx")", "7"), OnnxProblem::description, "\"model\""},
      {with(good, R"("l.txt")", R"("")"), OnnxProblem::description, "\"labels\""},
      {with(good, "8", "0"), OnnxProblem::description, "1 to 2048"},
      {with(good, "6", "-6"), OnnxProblem::description, "1 to 2048"},
      {with(good, "6", "100000"), OnnxProblem::description, "1 to 2048"},
      {with(good, "6", "6.5"), OnnxProblem::description, "1 to 2048"},
      {good + R"(, "fit": "inside")", OnnxProblem::description, "\"fit\""},
      {good + R"(, "channels": null)", OnnxProblem::description, "\"channels\""},
      {good + R"(, "scale": 0)", OnnxProblem::description, "\"scale\""},
      {good + R"(, "mean": [1, 2])", OnnxProblem::description, "\"mean\""},
      {good + R"(, "std": [1, 0, 1])", OnnxProblem::description, "\"std\""},
      {with(good, "none", "maximum"), OnnxProblem::description, "\"output\""},
      {with(good, "l.txt", "gap.txt"), OnnxProblem::description, "gap.txt: line 2"},
      {with(good, "l.txt", "latin.txt"), OnnxProblem::description, "latin.txt: not UTF-8"},
      {with(good, "l.txt", "two.txt"), OnnxProblem::model, "m.onnx: gives 3 values for 2 labels"},
      {with(good, "l.txt", "empty.txt"), OnnxProblem::model, "for 0 labels"},
      {with(good, "m.onnx", "garbage.onnx"), OnnxProblem::model, "garbage.onnx: "},
      {with(good, "m.onnx", "empty.txt"), OnnxProblem::model, "empty.txt: "}};
  ::testing::internal::CaptureStderr();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.members);
    const auto classifier = openWith(c.members);
    ASSERT_FALSE(classifier);
    EXPECT_EQ(classifier.error().domain(), kOnnxErrorDomain);
    EXPECT_EQ(classifier.error().code(), static_cast<int>(c.problem));
    EXPECT_THAT(classifier.error().description(), HasSubstr(c.sentence));
  }
  for (const auto* name : {"m.onnx", "l.txt"}) {
    const auto missing = openWith(with(good, name, "missing"));
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().domain(), Error::kPosix);
    EXPECT_EQ(missing.error().code(), ENOENT);
    EXPECT_THAT(missing.error().description(), HasSubstr("missing: "));
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(OnnxClassifier, RefusesModelsThatDoNotCompute) {
  writeModel();
  const std::string good = kSmallest + R"(, "output": "softmax")";
  const auto whole = testing::readFile(testDirectory() / "m.onnx");
  for (const auto& model : {whole.substr(0, whole.size() / 2),
                            testing::onnxModelOfMeans({{1, 0}, {0, 1}, {1, 1}}, {0, 0, 0}, 6, 8)}) {
    writeFile(testDirectory() / "m.onnx", model);
    ::testing::internal::CaptureStderr();
    const auto classifier = openWith(good);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ASSERT_FALSE(classifier);
    EXPECT_EQ(classifier.error().code(), static_cast<int>(OnnxProblem::model));
  }
  writeFile(testDirectory() / "m.onnx",
            testing::onnxModelOfMeans({{1e38F, 0, 0}, {1, 0, 0}, {1, 0, 0}}, {0, 0, 0}, 6, 8));
  testing::writeImage(testDirectory() / "red.png", 8, 8, {255, 0, 0});
  const auto classifier = openWith(good + R"(, "scale": 1)");
  ASSERT_TRUE(classifier) << classifier.error().description();
  const auto observations = (*classifier)->classify(testDirectory() / "red.png");
  ASSERT_FALSE(observations);
  EXPECT_EQ(observations.error().code(), static_cast<int>(OnnxProblem::computation));
}

TEST(OnnxClassifier, ServesManyThreads) {
  writeModel();
  const auto classifier = openWith(kSmallest + R"(, "output": "none")");
  ASSERT_TRUE(classifier) << classifier.error().description();
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    const auto file = testDirectory() / (std::to_string(i) + ".png");
    testing::writeImage(file, 16, 12, {i * 51.0, 0, 0});
    threads.emplace_back([&classifier, file, i] {
      for (int round = 0; round < 20; ++round) {
        const auto observations = (*classifier)->classify(file);
        ASSERT_TRUE(observations);
        for (const auto& observation : *observations) {
          if (observation.identifier != "sky") continue;
          EXPECT_NEAR(observation.confidence, static_cast<float>(i) * 0.2F, 1e-5);
        }
      }
    });
  }
  threads.clear();
  const auto broken = (*classifier)->classify(testDirectory() / "l.txt");
  ASSERT_FALSE(broken);
  EXPECT_EQ(broken.error().domain(), "Image");
}

}  // namespace
}  // namespace orvane
