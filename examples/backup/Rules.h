#pragma once

#include <orvane/Error.h>
#include <orvane/bookkeeping/UploadRecord.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace backup {

/// Uploads under way at the same time; images looked at at the same time.
constexpr std::size_t kAtATime = 4;

/// How long a file whose upload has just failed waits before it is tried again, after so many
/// retries in this run: twice as long each time, and up to half as long again by chance, so that
/// files that failed together do not come back together. Nothing when it is not tried again: the
/// same upload could not succeed a little later either, or the run's retries or those of the file's
/// whole life are used up.
[[nodiscard]] std::optional<std::chrono::duration<double>> retryDelay(
    const orvane::Error& error, const orvane::UploadRecord& record, std::int64_t retriesInRun);

/// Whether the store cannot be reached, which no file's retries shall be spent on.
[[nodiscard]] bool isUnreachable(const orvane::Error& error);

/// Whether the store does not know an upload any more of which it has accepted parts: the answer to
/// its completion was lost, or somebody has ended it. Sent again, the file can go up.
[[nodiscard]] bool isUploadLost(const orvane::Error& error, const orvane::UploadRecord& record);

/// Whether the store can be reached, but nothing may be put there, or there is no such bucket.
[[nodiscard]] bool isRefused(const orvane::Error& error, const orvane::UploadRecord& record);

/// The error's sentence, with advice where the user can do something.
[[nodiscard]] std::string explanation(const orvane::Error& error);

/// The media type that the file's extension stands for, in any letter case.
[[nodiscard]] std::string_view contentTypeOf(const std::filesystem::path& file);

}  // namespace backup
