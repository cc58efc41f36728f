#include <orvane/platform/vision/OnnxClassifier.h>

#include "support/Test.h"

#include <iomanip>

namespace orvane {
namespace {

using Row = std::vector<std::string>;

/// The lines of a table in the tests' data, divided at "|".
std::vector<Row> rowsOf(const std::string& table) {
  std::ifstream file(testData("onnx") / table);
  std::vector<Row> rows;
  for (std::string line; std::getline(file, line);) {
    Row row;
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, '|');) row.push_back(cell);
    rows.push_back(row);
  }
  return rows;
}

/// Opens a description that lies beside copies of the models and labels.
auto openWith(const std::string& members) {
  fs::copy(testData("onnx"), testDirectory(),
           fs::copy_options::skip_existing | fs::copy_options::recursive);
  writeFile(testDirectory() / "d.json", "{" + members + "}");
  return OnnxClassifier::open(testDirectory() / "d.json");
}

const std::string kMeans =
    R"("model": "means.onnx", "labels": "labels.txt", "width": 8, "height": 6, )";

std::string textOf(const std::vector<ClassificationObservation>& observations) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(3);
  for (const auto& [label, confidence] : observations) text << label << ' ' << confidence << ' ';
  return text.str();
}

TEST(OnnxClassifier, ComputesWhatTheModelSays) {
  const auto rows = rowsOf("computed.txt");
  EXPECT_EQ(rows.size(), 5U);
  for (const auto& row : rows) {
    const auto classifier = openWith(kMeans + row.at(0));
    ASSERT_TRUE(classifier) << classifier.error().description();
    const auto observations = (*classifier)->classify(testDirectory() / "colour.png");
    ASSERT_TRUE(observations) << observations.error().description();
    EXPECT_EQ(textOf(*observations), row.at(1) + ' ') << row.at(0);
  }
}

TEST(OnnxClassifier, SaysWhatIsWrongWithADescription) {
  const auto rows = rowsOf("refused.txt");
  EXPECT_EQ(rows.size(), 25U);
  ::testing::internal::CaptureStderr();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.at(0));
    const auto classifier = openWith(row.at(0));
    ASSERT_FALSE(classifier);
    const auto& error = classifier.error();
    EXPECT_EQ(std::string(error.domain()) + ' ' + std::to_string(error.code()), row.at(1));
    EXPECT_THAT(error.description(), HasSubstr(row.at(2)));
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(OnnxClassifier, AResultThatIsNoNumberIsAnError) {
  const auto classifier = openWith(
      R"("model": "overflow.onnx", "labels": "labels.txt", "width": 8, "height": 6,
         "output": "softmax", "scale": 1)");
  ASSERT_TRUE(classifier) << classifier.error().description();
  const auto observations = (*classifier)->classify(testDirectory() / "red-3.png");
  ASSERT_FALSE(observations);
  EXPECT_EQ(observations.error().code(), static_cast<int>(OnnxProblem::computation));
  EXPECT_EQ((*classifier)->classify(testDirectory() / "labels.txt").error().domain(), "Image");
}

}  // namespace
}  // namespace orvane
