#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/sqlite/sqlite_managed_object_context.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// One database file and the context on it, which is there once the store is loaded.
class SqlitePersistentContainer final : public PersistentContainer {
public:
    /// `file` is asked for its path whenever it is opened.
    SqlitePersistentContainer(std::function<std::filesystem::path()> file, const char* vfs, ManagedObjectModel model);

    /// Fails, and leaves the file as it is, when the file cannot be read and written, is damaged, or holds anything but
    /// the model's tables.
    std::expected<void, StoreError> loadPersistentStores() override;
    ManagedObjectContext& viewContext() override;
    void waitAtMost(std::chrono::milliseconds wait) override;

private:
    std::expected<std::unique_ptr<SqliteConnection>, StoreError> openDatabase() const;

    std::function<std::filesystem::path()> file_;
    const char* vfs_;
    ManagedObjectModel model_;
    // Opening may wait longer than an operation: another process may be emptying the log of its last connection.
    std::chrono::milliseconds openingPatience_{5000};
    std::unique_ptr<SqliteManagedObjectContext> context_;
};

}  // namespace tarvex::platform
