#pragma once

#include <orvane/Error.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace backup {

/// Uploads under way at the same time.
constexpr std::size_t kUploadsAtATime = 4;

/// Retries of one file in one run.
constexpr std::int64_t kMostRetries = 3;

/// The pause before a file's retry number `retry`, counted from 1: it doubles each time.
[[nodiscard]] constexpr std::chrono::seconds pauseBefore(std::int64_t retry) {
  return std::chrono::seconds(1LL << (retry - 1));
}

/// Whether the same upload may well succeed a little later: the store is overloaded or broken, or
/// the network is.
[[nodiscard]] bool isTransient(const orvane::Error& error);

/// The error's sentence, with advice where the user can do something.
[[nodiscard]] std::string explanation(const orvane::Error& error);

/// The media type that the file's extension stands for, in any letter case.
[[nodiscard]] std::string_view contentTypeOf(const std::filesystem::path& file);

}  // namespace backup
