#pragma once

// What most tests need: GoogleTest, the standard headers, files, child processes.

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <latch>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <ranges>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace orvane {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace std::string_view_literals;

using testing::ChildMain;
using testing::ChildProcess;
using testing::outputOfChild;
using testing::readFile;
using testing::testDirectory;
using testing::writeFile;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

}  // namespace orvane
