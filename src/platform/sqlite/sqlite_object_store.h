#pragma once

#include <filesystem>
#include <functional>

#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// Stores of SQLite databases, one file a container: `<container's name>.sqlite`.
///
/// `loadPersistentStores` fails, and leaves the file as it is, when the file cannot be read and written, is damaged, or
/// holds anything but the object model's tables.
class SqliteObjectStore final : public ObjectStore {
public:
    /// `directory` returns the place of the file each time a container opens it; it has made that directory then. `vfs`
    /// names SQLite's file system; null is the system's own.
    explicit SqliteObjectStore(std::function<std::filesystem::path()> directory, const char* vfs = nullptr);

    bool fitsModel(const std::filesystem::path& path) const override;
    std::unique_ptr<PersistentContainer> makeContainer(std::string_view name) override;

private:
    std::function<std::filesystem::path()> directory_;
    const char* vfs_;
};

}  // namespace tarvex::platform
