#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/store/deletion_scrub.h"
#include "platform/linux/store/sqlite_connection.h"
#include "platform/object_store.h"

namespace tarvex::platform {

/// The records of one database. Pending ones are in memory alone, never in an open transaction: nothing of them is in
/// the way of another process.
class SqliteManagedObjectContext final : public ManagedObjectContext {
public:
    /// Takes a connection whose schema is the model's.
    static std::expected<std::unique_ptr<SqliteManagedObjectContext>, StoreError> open(
        std::unique_ptr<SqliteConnection> connection, const ManagedObjectModel& model);

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
        EntityDescription entity;
        Statement insert;
        Statement count;
    };
    struct Pending {
        const Table* table;
        std::shared_ptr<ManagedObject> object;
    };
    struct Stored {
        std::int64_t records;
        bool scrubOwed;
    };

    SqliteManagedObjectContext(std::unique_ptr<SqliteConnection> connection, DeletionScrub scrub);

    std::expected<void, StoreError> prepare(const EntityDescription& entity);
    std::expected<const Table*, StoreError> table(const FetchRequest& request) const;
    std::expected<void, StoreError> write(const Pending& record);
    std::expected<void, StoreError> writePending();
    std::expected<bool, StoreError> visitStored(const Table& table, const std::vector<std::size_t>& wanted,
                                                const RowVisitor& visit);
    void visitPending(const Table& table, const std::vector<std::size_t>& wanted, const RowVisitor& visit) const;
    std::expected<Stored, StoreError> countStored(const Table& table);
    std::expected<void, StoreError> deleteStored(const Table& table);
    void retryScrub();

    std::unique_ptr<SqliteConnection> connection_;
    DeletionScrub scrub_;
    std::vector<std::unique_ptr<Table>> tables_;
    std::vector<Pending> pending_;
};

}  // namespace tarvex::platform
