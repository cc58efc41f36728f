#pragma once

#include <orvane/platform/DatabaseMigrator.h>

namespace orvane::internal {

/// The steps that lead a file of tags, of any age, to the present layout.
[[nodiscard]] platform::DatabaseMigrator tagDatabaseMigrator();

}  // namespace orvane::internal
