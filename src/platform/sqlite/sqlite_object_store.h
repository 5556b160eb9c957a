#pragma once

#include <filesystem>
#include <functional>

#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// Stores of SQLite databases, one file a container: `<container's name>.sqlite`.
class SqliteObjectStore final : public ObjectStore {
public:
    /// `directory` is asked for the place of the file each time a container loads its store; it has made that directory
    /// when it returns. `vfs` names SQLite's file system; null is the system's own.
    explicit SqliteObjectStore(std::function<std::filesystem::path()> directory, const char* vfs = nullptr);

    std::optional<ManagedObjectModel> modelWithContentsOfFile(const std::filesystem::path& path) const override;
    std::unique_ptr<PersistentContainer> makeContainer(std::string_view name, const ManagedObjectModel& model) override;

private:
    std::function<std::filesystem::path()> directory_;
    const char* vfs_;
};

}  // namespace tarvex::platform
