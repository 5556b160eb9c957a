#pragma once

#include "interposed_vfs.h"
#include "prelude.h"

namespace tarvex::test {

/// Fails when told: at one call, or at all of some kind until it is healed. Counts writes, syncs and tries for a lock.
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
    int locks() const { return locks_; }

protected:
    int before(FileCall call) override {
        // In the order of `FileCall`.
        static constexpr std::array failures{
            SQLITE_CANTOPEN,    SQLITE_IOERR_DELETE, SQLITE_IOERR_READ, SQLITE_FULL,         SQLITE_IOERR_TRUNCATE,
            SQLITE_IOERR_FSYNC, SQLITE_IOERR_FSTAT,  SQLITE_IOERR_LOCK, SQLITE_IOERR_SHMMAP, SQLITE_IOERR_SHMLOCK};
        if (call == FileCall::sync) ++syncs_;
        if (call == FileCall::write) ++writes_;
        if (call == FileCall::sharedLock) ++locks_;
        if (brokenCode_ != SQLITE_OK && call == broken_) return brokenCode_;
        return ++calls_ == failing_ ? failures.at(static_cast<std::size_t>(call)) : SQLITE_OK;
    }

private:
    static constexpr int never = std::numeric_limits<int>::max();

    int calls_ = 0;
    int failing_ = never;
    int syncs_ = 0;
    int writes_ = 0;
    int locks_ = 0;
    FileCall broken_ = FileCall::write;
    int brokenCode_ = SQLITE_OK;
};

}  // namespace tarvex::test
