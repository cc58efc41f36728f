#pragma once

#include <orvane/transport/S3Config.h>

#include <map>
#include <stop_token>
#include <string>
#include <utility>

#include "Findings.h"

namespace orvane::soak {

/// The confidence of each tag of each asset (by its number) that a device has found.
using TagLedger = std::map<std::pair<int, std::string>, double>;

/// A line for each, as the database should have it.
[[nodiscard]] Lines expectedTags(const std::string& deviceUUID, const TagLedger& tags);
/// What the database has.
[[nodiscard]] Lines storedTags(const std::string& deviceUUID);

/// The thread that writes this device's tags and looks for them. Returns what it has written.
TagLedger writeTags(Findings& findings, const std::stop_token& stop);

/// The thread that exchanges tags with other devices.
void exchangeTags(Findings& findings, const S3Config& config, const std::stop_token& stop);
/// One upload and one download.
void exchangeTagsOnce(Findings& findings, const S3Config& config);

/// Plays a second device: puts its tag object, ever anew, straight into the store. Returns what the
/// last one holds.
TagLedger playSecondDevice(Findings& findings, const S3Config& config,
                           const std::string& deviceUUID, const std::stop_token& stop);

}  // namespace orvane::soak
