#pragma once

#include <orvane/platform/database/DatabaseQueue.h>
#include <orvane/platform/host/HostApplication.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::testing {

inline std::filesystem::path tagDatabaseFile() {
  return HostApplication::documentsDirectory().value() / "tag_database.sqlite";
}

/// A connection of somebody else to the tag database.
inline std::unique_ptr<platform::DatabaseQueue> otherConnection() {
  return platform::DatabaseQueue::open(tagDatabaseFile()).value();
}

/// What the file itself holds, as another connection sees it: the first column of each row.
inline std::vector<std::string> tagDatabaseRows(std::string_view statement) {
  return otherConnection()
      ->read([&](platform::Database& database) {
        return database.fetchAll(statement, {}, {}, [](const platform::DatabaseRow& row) {
          return std::string(row.text(0));
        });
      })
      .value();
}

}  // namespace orvane::testing
