#include "platform/sqlite/sqlite_object_store.h"

#include <string>
#include <utility>

#include "platform/sqlite/sqlite_managed_object_context.h"
#include "platform/sqlite/sqlite_schema.h"

namespace tarvex::platform {

namespace {

class SqlitePersistentContainer final : public PersistentContainer {
public:
    SqlitePersistentContainer(std::function<std::filesystem::path()> file, const char* vfs)
        : context_(std::move(file), vfs) {}

    std::expected<void, StoreError> loadPersistentStores() override { return context_.open(); }
    ManagedObjectContext& viewContext() override { return context_; }
    void waitAtMost(std::chrono::milliseconds wait) override { context_.waitAtMost(wait); }

private:
    SqliteManagedObjectContext context_;
};

}  // namespace

SqliteObjectStore::SqliteObjectStore(std::function<std::filesystem::path()> directory, const char* vfs)
    : directory_(std::move(directory)), vfs_(vfs) {}

bool SqliteObjectStore::fitsModel(const std::filesystem::path& path) const {
    return isObjectModel(path);
}

std::unique_ptr<PersistentContainer> SqliteObjectStore::makeContainer(std::string_view name) {
    auto file = [directory = directory_, fileName = std::string(name) + ".sqlite"] { return directory() / fileName; };
    return std::make_unique<SqlitePersistentContainer>(std::move(file), vfs_);
}

}  // namespace tarvex::platform
