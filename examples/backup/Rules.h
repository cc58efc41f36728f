#pragma once

#include <orvane/Error.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace backup {

/// Downloads under way at the same time; images looked at at the same time; uploads that are
/// refused one after the other before the run gives up.
constexpr std::size_t kAtATime = 4;

/// Whether the store cannot be reached, which no file's retries shall be spent on.
[[nodiscard]] bool isUnreachable(const orvane::Error& error);

/// Whether the user wanted to stop.
[[nodiscard]] bool isCancelled(const orvane::Error& error);

/// Whether the store can be reached, but nothing may be put there, or there is no such bucket.
[[nodiscard]] bool isRefused(const orvane::Error& error);

/// The error's sentence, with advice where the user can do something.
[[nodiscard]] std::string explanation(const orvane::Error& error);

/// The media type that the file's extension stands for, in any letter case.
[[nodiscard]] std::string_view contentTypeOf(const std::filesystem::path& file);

}  // namespace backup
