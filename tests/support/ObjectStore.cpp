#include "support/ObjectStore.h"

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <simdjson.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace orvane::testing {
namespace {

constexpr int kNotFound = 4;  // the client's exit status

std::string textOf(const simdjson::dom::object& object, std::string_view name) {
  std::string_view text;
  return object[name].get(text) == simdjson::SUCCESS ? std::string(text) : std::string();
}

StoredObject storedObject(const simdjson::dom::object& object) {
  return {.key = textOf(object, "key"),
          .size = object["size"],
          .etag = textOf(object, "etag"),
          .contentType = textOf(object, "contentType")};
}

/// The objects of a JSON array, each converted.
template <class Convert>
auto elements(const std::string& json, Convert convert) {
  simdjson::dom::parser parser;
  std::vector<decltype(convert(simdjson::dom::object()))> result;
  for (const simdjson::dom::object element : parser.parse(json)) result.push_back(convert(element));
  return result;
}

}  // namespace

ObjectStore::ObjectStore() : prefix_(testDirectory().filename().string() + "/") {
  const char* const file = std::getenv("ORVANE_OBJECT_STORE");
  if (file == nullptr) throw std::runtime_error("no object store: run this test through ctest");
  environmentFile_ = file;
  std::istringstream lines(readFile(file));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    settings_[line.substr(0, equals)] = line.substr(equals + 1);
  }
}

std::optional<std::string> ObjectStore::run(std::vector<std::string> command) const {
  command.insert(command.begin(), {"/usr/bin/python3", ORVANE_S3_CLIENT, environmentFile_});
  auto client = ChildProcess::start(command);
  std::string output = client.readAll();
  const int status = client.wait();
  if (status == kNotFound) return std::nullopt;
  if (status != 0) throw std::runtime_error("the object store refused: " + command.at(3));
  return output;
}

void ObjectStore::put(const std::string& key, std::string_view content,
                      const std::string& contentType) const {
  const TemporaryDirectory directory;
  writeFile(directory / "content", content);
  static_cast<void>(run({"put", key, (directory / "content").string(), contentType}));
}

std::optional<std::string> ObjectStore::get(const std::string& key) const {
  return run({"get", key});
}

std::optional<StoredObject> ObjectStore::head(const std::string& key) const {
  const auto json = run({"head", key});
  if (!json) return std::nullopt;
  simdjson::dom::parser parser;
  return storedObject(parser.parse(*json));
}

void ObjectStore::remove(const std::string& key) const { static_cast<void>(run({"delete", key})); }

std::vector<StoredObject> ObjectStore::list(const std::string& prefix) const {
  return elements(run({"list", prefix}).value(), storedObject);
}

std::vector<UnfinishedUpload> ObjectStore::unfinishedUploads(const std::string& prefix) const {
  return elements(run({"list-uploads", prefix}).value(),
                  [](const simdjson::dom::object& object) -> UnfinishedUpload {
                    return {.key = textOf(object, "key"), .uploadId = textOf(object, "uploadId")};
                  });
}

}  // namespace orvane::testing
