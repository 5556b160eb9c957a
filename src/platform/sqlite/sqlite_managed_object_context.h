#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "platform/sqlite/deletion_scrub.h"
#include "platform/sqlite/sqlite_connection.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// The records of one database. Pending ones are in memory alone, never in an open transaction: nothing of them is in
/// the way of another process.
///
/// When the database's file is removed or replaced by another program, the next operation opens it again, and makes it
/// when it is missing: records are never stored into a file that has no name any more.
class SqliteManagedObjectContext final : public ManagedObjectContext {
public:
    /// `file` returns the path whenever the database is opened. `vfs` names SQLite's file system; null is the system's
    /// own.
    SqliteManagedObjectContext(std::function<std::filesystem::path()> file, const char* vfs);

    /// Called before any other operation; see `PersistentContainer::loadPersistentStores`.
    [[nodiscard]] std::expected<void, StoreError> open();

    /// Sets how long an operation waits for other connections: a second by default, an opening five.
    void waitAtMost(std::chrono::milliseconds wait);

    std::shared_ptr<ManagedObject> insertNewObject(std::string_view entityName) override;
    std::expected<void, StoreError> save() override;
    std::expected<void, StoreError> fetch(const FetchRequest& request, const RowVisitor& visit) override;
    std::size_t fetchSizeBound(const FetchRequest& request) override;
    std::expected<std::int64_t, StoreError> count(const FetchRequest& request) override;
    std::expected<void, StoreError> batchDelete(const FetchRequest& request) override;
    void scrub() override;

private:
    struct Database {
        std::unique_ptr<SqliteConnection> connection;
        DeletionScrub scrub;
        Statement insert;
        Statement count;
    };
    struct Stored {
        std::int64_t records;
        bool scrubOwed;
    };

    std::expected<std::unique_ptr<SqliteConnection>, StoreError> connect() const;
    std::expected<Database*, StoreError> database();
    std::expected<Database*, StoreError> databaseFor(const FetchRequest& request);
    void leaveIfMoved();
    void leave();

    static std::expected<void, StoreError> write(const ManagedObject& object, Database& database);
    std::expected<void, StoreError> writePending(Database& database) const;
    static std::expected<bool, StoreError> visitStored(Database& database, const RowVisitor& visit);
    static std::expected<Stored, StoreError> countStored(Database& database);
    static std::expected<void, StoreError> deleteStored(Database& database);
    std::expected<void, StoreError> cutFiles(Spare spare);
    static void retryScrub(Database& database);

    const std::function<std::filesystem::path()> file_;
    const char* const vfs_;
    std::chrono::milliseconds patience_;
    std::chrono::milliseconds openingPatience_;
    std::unique_ptr<Database> database_;  // none while the files are gone, until the next operation
    std::vector<std::shared_ptr<ManagedObject>> pending_;
};

}  // namespace tarvex::platform
