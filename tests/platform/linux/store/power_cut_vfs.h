#pragma once

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "interposed_vfs.h"

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
    int before(FileCall call, const std::string& path) override;
    void opened(const std::string& path) override;
    void removed(const std::string& path) override;
    void written(const std::string& path, std::uint64_t offset, std::span<const char> bytes) override;
    void truncated(const std::string& path, std::uint64_t size) override;
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
