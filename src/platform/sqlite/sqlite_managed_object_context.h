#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/sqlite/deletion_scrub.h"
#include "platform/sqlite/sqlite_connection.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// The records of one database. Pending ones are in memory alone, never in an open transaction: nothing of them is in
/// the way of another process.
///
/// When the database's file is removed or replaced by somebody else, the next operation opens it again, and makes it
/// where it is missing: records are never stored into a file that nobody will find.
class SqliteManagedObjectContext final : public ManagedObjectContext {
public:
    /// Gives a connection whose schema is the model's. Called by `open`, and again after the files have gone.
    using OpenDatabase = std::function<std::expected<std::unique_ptr<SqliteConnection>, StoreError>()>;

    static std::expected<std::unique_ptr<SqliteManagedObjectContext>, StoreError> open(OpenDatabase openDatabase,
                                                                                       ManagedObjectModel model);

    /// How long an operation waits for other connections; a second by default.
    void waitAtMost(std::chrono::milliseconds wait) { patience_ = wait; }

    /// Null when the model has no such entity.
    std::shared_ptr<ManagedObject> insertNewObject(std::string_view entityName) override;
    std::expected<void, StoreError> save() override;
    std::expected<void, StoreError> fetch(const FetchRequest& request, const RowVisitor& visit) override;
    std::size_t fetchSizeBound(const FetchRequest& request) override;
    std::expected<std::int64_t, StoreError> count(const FetchRequest& request) override;
    std::expected<void, StoreError> batchDelete(const FetchRequest& request) override;
    void scrub() override;

private:
    struct Table {
        Statement insert;
        Statement count;
    };
    struct Database {
        std::unique_ptr<SqliteConnection> connection;
        DeletionScrub scrub;
        std::vector<Table> tables;  ///< in the model's order of entities
    };
    struct Pending {
        std::size_t entity;
        std::shared_ptr<ManagedObject> object;
    };
    struct Stored {
        std::int64_t records;
        bool scrubOwed;
    };
    /// One entity of the database that is open.
    struct Subject {
        Database& database;
        std::size_t entity;
    };

    SqliteManagedObjectContext(OpenDatabase openDatabase, ManagedObjectModel model);

    /// What a cut of the files leaves alone.
    enum class Spare : std::uint8_t { nothing, records };

    static std::expected<Table, StoreError> prepare(const SqliteConnection& connection,
                                                    const EntityDescription& entity);
    std::expected<void, StoreError> openAgain();
    std::expected<Database*, StoreError> database();
    std::expected<Subject, StoreError> subject(const FetchRequest& request);
    std::optional<std::size_t> entityNamed(std::string_view name) const;
    void leaveIfMoved();
    void leave();

    static std::expected<void, StoreError> write(const Pending& record, Database& database);
    std::expected<void, StoreError> writePending(Database& database);
    std::expected<bool, StoreError> visitStored(const Subject& subject, const std::vector<std::size_t>& wanted,
                                                const RowVisitor& visit) const;
    void visitPending(std::size_t entity, const std::vector<std::size_t>& wanted, const RowVisitor& visit) const;
    static std::expected<Stored, StoreError> countStored(const Subject& subject);
    std::expected<void, StoreError> deleteStored(const Subject& subject) const;
    bool mayCutFiles(const StoreError& error) const;
    std::expected<void, StoreError> cutFiles(Spare spare);
    static void retryScrub(Database& database);

    const OpenDatabase openDatabase_;
    const ManagedObjectModel model_;
    std::chrono::milliseconds patience_;
    std::unique_ptr<Database> database_;  // none while the files are gone, until the next operation
    std::vector<Pending> pending_;
};

}  // namespace tarvex::platform
