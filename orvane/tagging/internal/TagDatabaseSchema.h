#pragma once

#include <orvane/platform/database/DatabaseMigrator.h>

namespace orvane::tagging {

/// The steps that lead a file of tags, of any age, to the present layout.
[[nodiscard]] platform::DatabaseMigrator tagDatabaseMigrator();

}  // namespace orvane::tagging
