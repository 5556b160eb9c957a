#include "platform/sqlite/sqlite_persistent_container.h"

#include <utility>

#include "platform/sqlite/sqlite_schema.h"

namespace tarvex::platform {

SqlitePersistentContainer::SqlitePersistentContainer(std::function<std::filesystem::path()> file, const char* vfs,
                                                     ManagedObjectModel model)
    : file_(std::move(file)), vfs_(vfs), model_(std::move(model)) {}

std::expected<void, StoreError> SqlitePersistentContainer::loadPersistentStores() {
    auto context = SqliteManagedObjectContext::open([this] { return openDatabase(); }, model_);
    if (!context) return std::unexpected(std::move(context.error()));
    context_ = std::move(*context);
    return {};
}

std::expected<std::unique_ptr<SqliteConnection>, StoreError> SqlitePersistentContainer::openDatabase() const {
    auto connection = SqliteConnection::open(file_(), vfs_, openingPatience_);
    if (!connection) return std::unexpected(std::move(connection.error()));
    if ((*connection)->readOnly())
        return std::unexpected((*connection)->error("file cannot be written", SQLITE_READONLY));
    const SqliteSchema schema(model_);
    const auto present = schema.isPresentIn(**connection);
    if (!present) return std::unexpected(present.error());
    if (auto configured = (*connection)->configure(); !configured) return std::unexpected(configured.error());
    if (!*present) {
        if (auto created = schema.createIn(**connection); !created) return std::unexpected(created.error());
    }
    return connection;
}

ManagedObjectContext& SqlitePersistentContainer::viewContext() {
    return *context_;
}

void SqlitePersistentContainer::waitAtMost(std::chrono::milliseconds wait) {
    openingPatience_ = wait;
    if (context_) context_->waitAtMost(wait);
}

}  // namespace tarvex::platform
