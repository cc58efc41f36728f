#pragma once

#include <orvane/Error.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace backup {

using namespace std::chrono_literals;

/// Uploads under way at the same time.
constexpr std::size_t kUploadsAtATime = 4;

/// How long a file waits before each of its retries in one run.
constexpr std::array<std::chrono::seconds, 3> kRetryPauses{1s, 2s, 4s};

/// Whether the same upload may well succeed a little later: the store is overloaded or broken, or
/// the network is.
[[nodiscard]] bool isTransient(const orvane::Error& error);

/// The error's sentence, with advice where the user can do something.
[[nodiscard]] std::string explanation(const orvane::Error& error);

/// The media type that the file's extension stands for, in any letter case.
[[nodiscard]] std::string_view contentTypeOf(const std::filesystem::path& file);

}  // namespace backup
