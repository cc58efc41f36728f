#pragma once

// What most tests need: GoogleTest, the standard headers, files, child processes, servers.

#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"
#include "support/TestImage.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/post.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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
#include <stdexcept>
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

using testing::answer;
using testing::answerText;
using testing::ChildMain;
using testing::ChildProcess;
using testing::configFor;
using testing::FaultServer;
using testing::ObjectStore;
using testing::outputOfChild;
using testing::Reaction;
using testing::readFile;
using testing::RecordedRequest;
using testing::testData;
using testing::testDirectory;
using testing::writeFile;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

}  // namespace orvane
