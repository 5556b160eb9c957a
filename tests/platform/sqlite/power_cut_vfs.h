#pragma once

#include <random>

#include "interposed_vfs.h"
#include "prelude.h"

namespace tarvex::test {

/// Knows at each moment what a power cut would leave of the files: all that was synced, and of the rest nothing, the
/// oldest part, or any part, with the last write torn. Starts without files; the database's own is there, empty, when
/// it is opened.
class PowerCutVfs final : public InterposedVfs {
public:
    using Files = std::map<std::string, std::string>;  ///< contents by file name

    PowerCutVfs() : InterposedVfs(false) {}

    /// Called before each call that reaches the files.
    std::function<void()> onCall;

    Files afterPowerCut(std::mt19937& random) const;

protected:
    int before(FileCall call) override;
    void opened(const std::string& path) override;
    void removed(const std::string& path) override { files_[path].removed = true; }
    void written(const std::string& path, std::uint64_t offset, std::span<const char> bytes) override {
        files_[path].unsynced.push_back({offset, std::string(bytes.begin(), bytes.end())});
    }
    void truncated(const std::string& path, std::uint64_t size) override {
        files_[path].unsynced.push_back({size, std::nullopt});
    }
    void synced(const std::string& path) override;

private:
    struct Change {
        std::uint64_t offset;              // or the new size
        std::optional<std::string> bytes;  // absent: a truncation
    };
    struct File {
        bool removed = false;       // may come back until the directory is synced
        bool entryDurable = false;  // else it may not be there
        std::string durable;
        std::vector<Change> unsynced;
    };

    static void apply(std::string& contents, const Change& change);
    static std::string remains(const File& file, std::mt19937& random);

    std::map<std::string, File> files_;
};

}  // namespace tarvex::test
