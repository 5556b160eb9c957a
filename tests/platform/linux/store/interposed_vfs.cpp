#include "interposed_vfs.h"

namespace tarvex::test {

struct InterposedVfs::File {
    sqlite3_file base;
    InterposedVfs* vfs;
    const char* path;  // SQLite keeps it until the file is closed
    sqlite3_file* real;

    [[nodiscard]] int before(FileCall call) const { return vfs->before(call, path); }
};

/// The functions that SQLite calls.
struct InterposedVfs::Calls {
    static File* file(sqlite3_file* f) { return reinterpret_cast<File*>(f); }
    static InterposedVfs* self(sqlite3_vfs* vfs) { return static_cast<InterposedVfs*>(vfs->pAppData); }

    static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* opening, int flags, int* opened) {
        auto* const f = file(opening);
        f->base.pMethods = nullptr;
        f->vfs = self(vfs);
        f->path = path ? path : "";
        if (const int code = f->before(FileCall::open); code != SQLITE_OK) return code;
        f->real = reinterpret_cast<sqlite3_file*>(f + 1);
        const int code = f->vfs->real_->xOpen(f->vfs->real_, path, f->real, flags, opened);
        if (code != SQLITE_OK) return code;
        f->base.pMethods = &methods;
        f->vfs->opened(f->path);
        return SQLITE_OK;
    }

    static int close(sqlite3_file* f) { return file(f)->real->pMethods->xClose(file(f)->real); }

    static int remove(sqlite3_vfs* vfs, const char* path, int syncDirectory) {
        if (const int code = self(vfs)->before(FileCall::remove, path); code != SQLITE_OK) return code;
        const int code = self(vfs)->real_->xDelete(self(vfs)->real_, path, syncDirectory);
        if (code == SQLITE_OK) self(vfs)->removed(path);
        return code;
    }

    static int read(sqlite3_file* f, void* bytes, int count, sqlite3_int64 offset) {
        if (const int code = file(f)->before(FileCall::read); code != SQLITE_OK) return code;
        return file(f)->real->pMethods->xRead(file(f)->real, bytes, count, offset);
    }

    static int write(sqlite3_file* f, const void* bytes, int count, sqlite3_int64 offset) {
        if (const int code = file(f)->before(FileCall::write); code != SQLITE_OK) return code;
        const int code = file(f)->real->pMethods->xWrite(file(f)->real, bytes, count, offset);
        if (code == SQLITE_OK)
            file(f)->vfs->written(file(f)->path, static_cast<std::uint64_t>(offset),
                                  {static_cast<const char*>(bytes), static_cast<std::size_t>(count)});
        return code;
    }

    static int truncate(sqlite3_file* f, sqlite3_int64 size) {
        if (const int code = file(f)->before(FileCall::truncate); code != SQLITE_OK) return code;
        const int code = file(f)->real->pMethods->xTruncate(file(f)->real, size);
        if (code == SQLITE_OK) file(f)->vfs->truncated(file(f)->path, static_cast<std::uint64_t>(size));
        return code;
    }

    static int sync(sqlite3_file* f, int flags) {
        if (const int code = file(f)->before(FileCall::sync); code != SQLITE_OK) return code;
        const int code = file(f)->vfs->syncs_ ? file(f)->real->pMethods->xSync(file(f)->real, flags) : SQLITE_OK;
        if (code == SQLITE_OK) file(f)->vfs->synced(file(f)->path);
        return code;
    }

    static int size(sqlite3_file* f, sqlite3_int64* bytes) {
        if (const int code = file(f)->before(FileCall::size); code != SQLITE_OK) return code;
        return file(f)->real->pMethods->xFileSize(file(f)->real, bytes);
    }

    static int lock(sqlite3_file* f, int level) {
        if (const int code = file(f)->before(FileCall::lock); code != SQLITE_OK) return code;
        return file(f)->real->pMethods->xLock(file(f)->real, level);
    }

    static int unlock(sqlite3_file* f, int level) { return file(f)->real->pMethods->xUnlock(file(f)->real, level); }
    static int isReserved(sqlite3_file* f, int* out) {
        return file(f)->real->pMethods->xCheckReservedLock(file(f)->real, out);
    }
    static int control(sqlite3_file* f, int operation, void* argument) {
        return file(f)->real->pMethods->xFileControl(file(f)->real, operation, argument);
    }
    static int sectorSize(sqlite3_file* f) { return file(f)->real->pMethods->xSectorSize(file(f)->real); }
    static int device(sqlite3_file* f) { return file(f)->real->pMethods->xDeviceCharacteristics(file(f)->real); }

    static int sharedMap(sqlite3_file* f, int region, int size, int extend, void volatile** memory) {
        if (const int code = file(f)->before(FileCall::sharedMap); code != SQLITE_OK) return code;
        return file(f)->real->pMethods->xShmMap(file(f)->real, region, size, extend, memory);
    }
    static int sharedLock(sqlite3_file* f, int offset, int count, int flags) {
        // Giving a lock back never fails.
        if ((flags & SQLITE_SHM_LOCK) != 0)
            if (const int code = file(f)->before(FileCall::sharedLock); code != SQLITE_OK) return code;
        return file(f)->real->pMethods->xShmLock(file(f)->real, offset, count, flags);
    }
    static void sharedBarrier(sqlite3_file* f) { file(f)->real->pMethods->xShmBarrier(file(f)->real); }
    static int sharedUnmap(sqlite3_file* f, int remove) {
        return file(f)->real->pMethods->xShmUnmap(file(f)->real, remove);
    }

    static const sqlite3_io_methods methods;
};

const sqlite3_io_methods InterposedVfs::Calls::methods = {
    2,       close,      read,   write,     truncate,   sync,          size,        lock,    unlock, isReserved,
    control, sectorSize, device, sharedMap, sharedLock, sharedBarrier, sharedUnmap, nullptr, nullptr};

InterposedVfs::InterposedVfs(bool syncs)
    : real_(sqlite3_vfs_find(nullptr)),
      name_("interposed-" + std::to_string(reinterpret_cast<std::uintptr_t>(this))),
      syncs_(syncs),
      vfs_(*real_) {
    // What is copied from the real one and not replaced here has no file: time, randomness, full paths.
    vfs_.iVersion = 1;
    vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
    vfs_.zName = name_.c_str();
    vfs_.pNext = nullptr;
    vfs_.pAppData = this;
    vfs_.xOpen = Calls::open;
    vfs_.xDelete = Calls::remove;
    sqlite3_vfs_register(&vfs_, 0);
}

InterposedVfs::~InterposedVfs() {
    sqlite3_vfs_unregister(&vfs_);
}

}  // namespace tarvex::test
