#pragma once

#include <sqlite3.h>

#include "prelude.h"

namespace tarvex::test {

enum class FileCall : std::uint8_t { open, remove, read, write, truncate, sync, size, lock, sharedMap, sharedLock };

/// SQLite's own file system on real files, with a place to step in before each call. Temporary files, which would keep
/// deleted records, it refuses. Registered while it lives; outlives the connections that use it.
class InterposedVfs {
public:
    virtual ~InterposedVfs() { sqlite3_vfs_unregister(&vfs_); }
    InterposedVfs(const InterposedVfs&) = delete;
    InterposedVfs& operator=(const InterposedVfs&) = delete;

    const char* name() const noexcept { return name_.c_str(); }

protected:
    /// `syncs`: whether a sync reaches the disk.
    explicit InterposedVfs(bool syncs = true);

    /// Anything but SQLITE_OK is the call's result, and the real call is not made.
    [[nodiscard]] virtual int before(FileCall call) = 0;

    virtual void opened(const std::string& /*path*/) {}
    virtual void removed(const std::string& /*path*/) {}
    virtual void written(const std::string& /*path*/, std::uint64_t /*offset*/, std::span<const char> /*bytes*/) {}
    virtual void truncated(const std::string& /*path*/, std::uint64_t /*size*/) {}
    virtual void synced(const std::string& /*path*/) {}

private:
    struct File;
    struct Calls;

    sqlite3_vfs* const real_;
    const std::string name_;
    const bool syncs_;
    sqlite3_vfs vfs_;
};

}  // namespace tarvex::test
