#include "interposed_vfs.h"

namespace tarvex::test {

struct InterposedVfs::File {
    sqlite3_file base;
    InterposedVfs* vfs;
    const char* path;  // SQLite keeps it until the file is closed
    sqlite3_file* real;
};

/// The functions that SQLite calls.
struct InterposedVfs::Calls {
    static File* file(sqlite3_file* f) { return reinterpret_cast<File*>(f); }
    static InterposedVfs* self(sqlite3_vfs* vfs) { return static_cast<InterposedVfs*>(vfs->pAppData); }

    /// The real file's own `method`, as a function to put in its place; for a `call`, if it may be made.
    template <auto method, FileCall... call>
    struct Forward;
    template <typename Result, typename... Arguments,
              Result (*sqlite3_io_methods::*method)(sqlite3_file*, Arguments...), FileCall... call>
    struct Forward<method, call...> {
        static Result run(sqlite3_file* f, Arguments... arguments) {
            if constexpr (sizeof...(call) > 0) {
                if (const int code = file(f)->vfs->before(call...); code != SQLITE_OK) return code;
            }
            return (file(f)->real->pMethods->*method)(file(f)->real, arguments...);
        }
    };

    static constexpr int temporary =
        SQLITE_OPEN_TEMP_DB | SQLITE_OPEN_TRANSIENT_DB | SQLITE_OPEN_TEMP_JOURNAL | SQLITE_OPEN_SUBJOURNAL;

    static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* opening, int flags, int* opened) {
        auto* const f = file(opening);
        f->base.pMethods = nullptr;
        if ((flags & temporary) != 0) return SQLITE_CANTOPEN;
        f->vfs = self(vfs);
        f->path = path;
        if (const int code = f->vfs->before(FileCall::open); code != SQLITE_OK) return code;
        f->real = reinterpret_cast<sqlite3_file*>(f + 1);
        const int code = f->vfs->real_->xOpen(f->vfs->real_, path, f->real, flags, opened);
        if (code != SQLITE_OK) return code;
        f->base.pMethods = &methods;
        f->vfs->opened(f->path);
        return SQLITE_OK;
    }

    static int remove(sqlite3_vfs* vfs, const char* path, int syncDirectory) {
        if (const int code = self(vfs)->before(FileCall::remove); code != SQLITE_OK) return code;
        const int code = self(vfs)->real_->xDelete(self(vfs)->real_, path, syncDirectory);
        if (code == SQLITE_OK) self(vfs)->removed(path);
        return code;
    }

    static int write(sqlite3_file* f, const void* bytes, int count, sqlite3_int64 offset) {
        const int code = Forward<&sqlite3_io_methods::xWrite, FileCall::write>::run(f, bytes, count, offset);
        if (code == SQLITE_OK)
            file(f)->vfs->written(file(f)->path, static_cast<std::uint64_t>(offset),
                                  {static_cast<const char*>(bytes), static_cast<std::size_t>(count)});
        return code;
    }

    static int truncate(sqlite3_file* f, sqlite3_int64 size) {
        const int code = Forward<&sqlite3_io_methods::xTruncate, FileCall::truncate>::run(f, size);
        if (code == SQLITE_OK) file(f)->vfs->truncated(file(f)->path, static_cast<std::uint64_t>(size));
        return code;
    }

    static int sync(sqlite3_file* f, int flags) {
        InterposedVfs& vfs = *file(f)->vfs;
        const int failure = vfs.before(FileCall::sync);
        const int code =
            failure == SQLITE_OK && vfs.syncs_ ? Forward<&sqlite3_io_methods::xSync>::run(f, flags) : failure;
        if (code == SQLITE_OK) vfs.synced(file(f)->path);
        return code;
    }

    static int sharedLock(sqlite3_file* f, int offset, int count, int flags) {
        // Giving a lock back never fails.
        if ((flags & SQLITE_SHM_LOCK) == 0) return Forward<&sqlite3_io_methods::xShmLock>::run(f, offset, count, flags);
        return Forward<&sqlite3_io_methods::xShmLock, FileCall::sharedLock>::run(f, offset, count, flags);
    }

    static const sqlite3_io_methods methods;
};

const sqlite3_io_methods InterposedVfs::Calls::methods = {
    2,
    Forward<&sqlite3_io_methods::xClose>::run,
    Forward<&sqlite3_io_methods::xRead, FileCall::read>::run,
    write,
    truncate,
    sync,
    Forward<&sqlite3_io_methods::xFileSize, FileCall::size>::run,
    Forward<&sqlite3_io_methods::xLock, FileCall::lock>::run,
    Forward<&sqlite3_io_methods::xUnlock>::run,
    Forward<&sqlite3_io_methods::xCheckReservedLock>::run,
    Forward<&sqlite3_io_methods::xFileControl>::run,
    Forward<&sqlite3_io_methods::xSectorSize>::run,
    Forward<&sqlite3_io_methods::xDeviceCharacteristics>::run,
    Forward<&sqlite3_io_methods::xShmMap, FileCall::sharedMap>::run,
    sharedLock,
    Forward<&sqlite3_io_methods::xShmBarrier>::run,
    Forward<&sqlite3_io_methods::xShmUnmap>::run,
    nullptr,
    nullptr};

InterposedVfs::InterposedVfs(bool syncs)
    : real_(sqlite3_vfs_find(nullptr)),
      name_("interposed-" + std::to_string(reinterpret_cast<std::uintptr_t>(this))),
      syncs_(syncs),
      vfs_(*real_) {
    // The functions that are copied and not replaced have no file: time, randomness, full paths.
    vfs_.iVersion = 1;
    vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
    vfs_.zName = name_.c_str();
    vfs_.pNext = nullptr;
    vfs_.pAppData = this;
    vfs_.xOpen = Calls::open;
    vfs_.xDelete = Calls::remove;
    sqlite3_vfs_register(&vfs_, 0);
}

}  // namespace tarvex::test
