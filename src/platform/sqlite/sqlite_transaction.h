#pragma once

#include <expected>

#include "platform/sqlite/sqlite_connection.h"

namespace tarvex::platform {

/// A write transaction: all of it at `commit`, or nothing of it.
class SqliteTransaction {
public:
    /// Nothing may be written, nor committed, unless this succeeded.
    explicit SqliteTransaction(SqliteConnection& connection);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    const std::expected<void, StoreError>& begun() const noexcept { return begun_; }
    [[nodiscard]] std::expected<void, StoreError> commit();

private:
    SqliteConnection& connection_;
    std::expected<void, StoreError> begun_;
};

}  // namespace tarvex::platform
