#include <orvane/platform/vision/internal/OnnxDescription.h>

#include <orvane/platform/base/Ascii.h>
#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/json/JsonReader.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;
using Output = OnnxDescription::Output;
using platform::ImageFit;

struct Draft {
  OnnxDescription description;
  std::string labels;
  std::string complaint;  ///< Why a member could not be taken.
};

bool refused(Draft& draft, std::string complaint) {
  draft.complaint = std::move(complaint);
  return false;
}

bool readModel(ondemand::value& value, Draft& draft) {
  std::string path;
  if (!read(value, path) || path.empty()) return refused(draft, "\"model\" is no file name");
  draft.description.model = path;
  return true;
}

bool readLabels(ondemand::value& value, Draft& draft) {
  return (read(value, draft.labels) && !draft.labels.empty()) ||
         refused(draft, "\"labels\" is no file name");
}

template <int OnnxDescription::* side>
bool readSide(ondemand::value& value, Draft& draft) {
  constexpr std::int64_t kMaximum = 2048;
  std::int64_t pixels = 0;
  if (!read(value, pixels) || pixels < 1 || pixels > kMaximum) {
    return refused(draft, R"("width" and "height" must be numbers from 1 to 2048)");
  }
  draft.description.*side = static_cast<int>(pixels);
  return true;
}

/// Reads one of a few words.
template <class Value, std::size_t count>
bool readChoice(ondemand::value& value, Draft& draft, Value& result,
                const std::pair<std::string_view, Value> (&choices)[count],
                std::string_view complaint) {
  std::string word;
  if (!read(value, word)) return refused(draft, std::string(complaint));
  for (const auto& [name, meaning] : choices) {
    if (name != word) continue;
    result = meaning;
    return true;
  }
  return refused(draft, std::string(complaint));
}

bool readFit(ondemand::value& value, Draft& draft) {
  return readChoice<ImageFit>(value, draft, draft.description.fit,
                              {{"cover", ImageFit::cover}, {"stretch", ImageFit::stretch}},
                              R"("fit" must be "cover" or "stretch")");
}

bool readChannels(ondemand::value& value, Draft& draft) {
  return readChoice<bool>(value, draft, draft.description.isBgr, {{"rgb", false}, {"bgr", true}},
                          R"("channels" must be "rgb" or "bgr")");
}

bool readOutput(ondemand::value& value, Draft& draft) {
  return readChoice<Output>(
      value, draft, draft.description.output,
      {{"softmax", Output::softmax}, {"sigmoid", Output::sigmoid}, {"none", Output::none}},
      R"("output" must be "softmax", "sigmoid" or "none")");
}

bool isUsableFactor(double number) { return std::isnormal(static_cast<float>(number)); }

bool readScale(ondemand::value& value, Draft& draft) {
  return (read(value, draft.description.scale) && isUsableFactor(draft.description.scale)) ||
         refused(draft, "\"scale\" must be a number other than 0");
}

bool readThree(ondemand::value& value, std::array<double, 3>& result) {
  ondemand::array array;
  std::size_t count = 0;
  if (value.get_array().get(array)) return false;
  for (auto item : array) {
    ondemand::value element;
    if (count == result.size() || std::move(item).get(element)) return false;
    if (!read(element, result.at(count++))) return false;
  }
  return count == result.size();
}

bool readMean(ondemand::value& value, Draft& draft) {
  return readThree(value, draft.description.mean) ||
         refused(draft, "\"mean\" must be three numbers");
}

bool readDeviation(ondemand::value& value, Draft& draft) {
  auto& deviation = draft.description.deviation;
  return (readThree(value, deviation) && std::ranges::all_of(deviation, isUsableFactor)) ||
         refused(draft, "\"std\" must be three numbers other than 0");
}

constexpr Members<Draft, 10> kMembers{{{"model", true, readModel},
                                       {"labels", true, readLabels},
                                       {"width", true, readSide<&OnnxDescription::width>},
                                       {"height", true, readSide<&OnnxDescription::height>},
                                       {"fit", false, readFit},
                                       {"channels", false, readChannels},
                                       {"scale", false, readScale},
                                       {"mean", false, readMean},
                                       {"std", false, readDeviation},
                                       {"output", true, readOutput}}};

/// The first of a line's synonyms in the form of a label.
std::string labelOf(std::string_view line) {
  line = line.substr(0, line.find(','));
  auto label = platform::lowered(platform::trimmed(platform::trimmed(line, '\r'), ' '));
  std::ranges::replace(label, ' ', '_');
  return label;
}

std::optional<Error> readLabelFile(const fs::path& file, std::vector<std::string>& labels) {
  const auto content = readNamed(file);
  if (!content) return content.error();
  std::string_view rest = platform::withoutByteOrderMark(textOf(content->view()));
  if (!platform::isUtf8(rest)) return onnxError(OnnxProblem::description, file, "not UTF-8");
  while (!rest.empty()) {
    const auto end = rest.find('\n');
    labels.push_back(labelOf(rest.substr(0, end)));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    if (!labels.back().empty()) continue;
    return onnxError(OnnxProblem::description, file,
                     "line " + std::to_string(labels.size()) + " holds no label");
  }
  return std::nullopt;
}

}  // namespace

Error onnxError(OnnxProblem problem, const fs::path& file, const std::string& sentence) {
  return {kOnnxErrorDomain, static_cast<int>(problem), file.filename().string() + ": " + sentence};
}

Result<SharedBytes> readNamed(const fs::path& file) {
  auto content = platform::readWholeFile(file);
  if (content) return content;
  const auto& error = content.error();
  return std::unexpected(
      Error(error.domain(), error.code(), file.filename().string() + ": " + error.description()));
}

Result<OnnxDescription> readOnnxDescription(const fs::path& file) {
  const auto content = readNamed(file);
  if (!content) return std::unexpected(content.error());
  Draft draft;
  const bool valid =
      readDocument(simdjson::padded_string(textOf(content->view())),
                   [&](ondemand::object& object) { return readMembers(object, kMembers, draft); });
  if (!valid) {
    if (draft.complaint.empty()) {
      draft.complaint = "not a JSON object with model, labels, width, height and output";
    }
    return std::unexpected(onnxError(OnnxProblem::description, file, draft.complaint));
  }
  auto& description = draft.description;
  description.model = file.parent_path() / description.model;
  if (auto error = readLabelFile(file.parent_path() / draft.labels, description.labels)) {
    return std::unexpected(std::move(*error));
  }
  return std::move(description);
}

}  // namespace orvane::platform
