#pragma once

#include <orvane/transport/S3Config.h>

#include <stop_token>
#include <string>

#include "Findings.h"

namespace orvane::soak {

inline constexpr const char* kSecondDevice = "00000000-0000-4000-8000-000000000002";

/// The tags that the database has from a device.
[[nodiscard]] Ledger storedTags(const std::string& deviceUUID);

/// The thread that writes this device's tags and looks for them. Returns what it has written.
Ledger writeTags(Findings& findings, const std::stop_token& stop);

/// What the thread does that exchanges tags with other devices: one upload and one download.
void exchangeTags(Findings& findings, const S3Config& config);

/// Plays a second device: puts its tag object, ever anew, straight into the store. Returns what the
/// last one holds.
Ledger playSecondDevice(Findings& findings, const S3Config& config, const std::stop_token& stop);

}  // namespace orvane::soak
