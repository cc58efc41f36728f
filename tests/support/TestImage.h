#pragma once

#include <filesystem>
#include <string_view>

namespace orvane::testing {

/// A file or folder of the tests' data, such as "images/good.png".
inline std::filesystem::path testData(std::string_view name) {
  return std::filesystem::path(ORVANE_TEST_DATA) / name;
}

/// Photographs with the labels that they deserve; its `README.md` says where they come from.
inline std::filesystem::path photoFolder() { return testData("photos"); }

}  // namespace orvane::testing
