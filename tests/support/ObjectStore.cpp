#include "support/ObjectStore.h"

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace orvane::testing {
namespace {

constexpr int kNotFound = 4;  // the client's exit status

/// The words of each line of the client's output.
std::vector<std::vector<std::string>> rowsIn(const std::string& output) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    for (rows.emplace_back(); std::getline(words, line, '\t');) rows.back().push_back(line);
    rows.back().resize(4);
  }
  return rows;
}

StoredObject storedObject(const std::vector<std::string>& row) {
  return {.key = row[0], .size = std::stoull(row[1]), .etag = row[2], .contentType = row[3]};
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
  const auto row = run({"head", key});
  if (!row) return std::nullopt;
  return storedObject(rowsIn(*row).at(0));
}

void ObjectStore::remove(const std::string& key) const { static_cast<void>(run({"delete", key})); }

std::vector<StoredObject> ObjectStore::list(const std::string& prefix) const {
  std::vector<StoredObject> objects;
  for (const auto& row : rowsIn(run({"list", prefix}).value())) {
    objects.push_back(storedObject(row));
  }
  return objects;
}

bool ObjectStore::hasUnfinishedUploads() const { return run({"list-uploads", prefix_}) != ""; }

}  // namespace orvane::testing
