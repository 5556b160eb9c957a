#pragma once

#include <unistd.h>

#include "prelude.h"

namespace tarvex::test {

/// While it lives, nothing in the directory, nor the directory itself, can be written by this process. Root could write
/// all the same, so a process of root's becomes somebody else for good: use it in a `ChildProcess`.
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(const std::filesystem::path& directory) : directory_(directory) {
        if (geteuid() == 0) becomeSomebodyElse();
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_read);
        std::filesystem::permissions(directory,
                                     std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    }
    ~ReadOnlyDirectory() { std::filesystem::permissions(directory_, std::filesystem::perms::owner_all); }
    ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
    ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;

private:
    void becomeSomebodyElse() const {
        constexpr uid_t nobody = 65534;
        bool done = chown(directory_.c_str(), nobody, nobody) == 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            done = done && chown(entry.path().c_str(), nobody, nobody) == 0;
        if (!done || setuid(nobody) != 0) throw std::runtime_error("cannot give up the rights of root");
    }

    std::filesystem::path directory_;
};

}  // namespace tarvex::test
