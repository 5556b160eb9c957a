#pragma once

#include <limits>
#include <string>

#include "interposed_vfs.h"

namespace tarvex::test {

/// Fails when told: at one call, or at all of some kind until it is healed. Counts writes and syncs.
class FaultyVfs final : public InterposedVfs {
public:
    /// The `n`th call from now on fails (1 is the next), as a full disk does when it writes, else as an I/O error.
    void failCall(int n) {
        calls_ = 0;
        failing_ = n;
    }
    /// Every `call` answers `code` until `heal`.
    void failEvery(FileCall call, int code) {
        broken_ = call;
        brokenCode_ = code;
    }
    void heal() {
        failing_ = never;
        brokenCode_ = SQLITE_OK;
    }

    /// Whether the call that `failCall` names was reached.
    bool reached() const { return calls_ >= failing_; }
    int syncs() const { return syncs_; }
    int writes() const { return writes_; }

protected:
    int before(FileCall call, const std::string& /*path*/) override {
        if (call == FileCall::sync) ++syncs_;
        if (call == FileCall::write) ++writes_;
        if (brokenCode_ != SQLITE_OK && call == broken_) return brokenCode_;
        return ++calls_ == failing_ ? failure(call) : SQLITE_OK;
    }

private:
    static constexpr int never = std::numeric_limits<int>::max();

    static int failure(FileCall call) {
        switch (call) {
            case FileCall::open:
                return SQLITE_CANTOPEN;
            case FileCall::remove:
                return SQLITE_IOERR_DELETE;
            case FileCall::read:
                return SQLITE_IOERR_READ;
            case FileCall::write:
                return SQLITE_FULL;
            case FileCall::truncate:
                return SQLITE_IOERR_TRUNCATE;
            case FileCall::sync:
                return SQLITE_IOERR_FSYNC;
            case FileCall::size:
                return SQLITE_IOERR_FSTAT;
            case FileCall::lock:
                return SQLITE_IOERR_LOCK;
            case FileCall::sharedMap:
                return SQLITE_IOERR_SHMMAP;
            case FileCall::sharedLock:
                return SQLITE_IOERR_SHMLOCK;
        }
        return SQLITE_ERROR;
    }

    int calls_ = 0;
    int failing_ = never;
    int syncs_ = 0;
    int writes_ = 0;
    FileCall broken_ = FileCall::write;
    int brokenCode_ = SQLITE_OK;
};

}  // namespace tarvex::test
