#pragma once

#include <orvane/Error.h>
#include <orvane/bookkeeping/UploadRecord.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace backup {

/// Uploads under way at the same time; images looked at at the same time.
constexpr std::size_t kAtATime = 4;

/// Whether a file whose upload has just failed is tried again in this run, after so many retries
/// in it: the same upload must be able to succeed a little later, and neither the run's retries
/// nor those of the file's whole life may be used up.
[[nodiscard]] bool mayRetry(const orvane::Error& error, const orvane::UploadRecord& record,
                            std::int64_t retriesInRun);

/// How long a file waits before it is tried again: twice as long each time, and up to half as long
/// again by chance, so that files that failed together do not come back together.
[[nodiscard]] std::chrono::duration<double> retryDelay(std::int64_t retriesInRun);

/// Whether the store cannot be reached, which no file's retries shall be spent on.
[[nodiscard]] bool isUnreachable(const orvane::Error& error);

/// Whether the store can be reached, but nothing may be put there, or there is no such bucket.
[[nodiscard]] bool isRefused(const orvane::Error& error);

/// The error's sentence, with advice where the user can do something.
[[nodiscard]] std::string explanation(const orvane::Error& error);

/// The media type that the file's extension stands for, in any letter case.
[[nodiscard]] std::string_view contentTypeOf(const std::filesystem::path& file);

}  // namespace backup
