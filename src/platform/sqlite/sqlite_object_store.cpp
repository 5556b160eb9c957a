#include "platform/sqlite/sqlite_object_store.h"

#include <string>
#include <utility>

#include "platform/sqlite/object_model_file.h"
#include "platform/sqlite/sqlite_persistent_container.h"

namespace tarvex::platform {

SqliteObjectStore::SqliteObjectStore(std::function<std::filesystem::path()> directory, const char* vfs)
    : directory_(std::move(directory)), vfs_(vfs) {}

std::optional<ManagedObjectModel> SqliteObjectStore::modelWithContentsOfFile(const std::filesystem::path& path) const {
    return readObjectModel(path);
}

std::unique_ptr<PersistentContainer> SqliteObjectStore::makeContainer(std::string_view name,
                                                                      const ManagedObjectModel& model) {
    auto file = [directory = directory_, fileName = std::string(name) + ".sqlite"] { return directory() / fileName; };
    return std::make_unique<SqlitePersistentContainer>(std::move(file), vfs_, model);
}

}  // namespace tarvex::platform
