#pragma once

#include <expected>
#include <string>

#include "platform/sqlite/sqlite_connection.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// One table an entity, a row a record: `seq`, which counts the records in the order of their insertion, then the
/// attributes. Columns carry no constraint: a value that a constraint refuses would hold up every later record too.
class SqliteSchema {
public:
    explicit SqliteSchema(const ManagedObjectModel& model) : model_(model) {}

    /// Whether the tables are there (true), the library's own included, or the database is empty (false); an error when
    /// it holds something else. Only reads.
    [[nodiscard]] std::expected<bool, StoreError> isPresentIn(SqliteConnection& connection) const;

    /// Creates the tables in an empty database, unless another process was faster.
    [[nodiscard]] std::expected<void, StoreError> createIn(SqliteConnection& connection) const;

    /// `name`, or the names of the attributes separated by commas, as SQL writes them.
    static std::string quoted(std::string_view name);
    static std::string columns(const EntityDescription& entity);

private:
    std::string creation() const;

    const ManagedObjectModel& model_;
};

}  // namespace tarvex::platform
