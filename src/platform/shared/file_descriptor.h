#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

namespace tarvex::platform {

/// A file that the kernel has opened; closed when this is destroyed.
class FileDescriptor {
public:
    /// Opens the file with `flags`, not for programs that this process starts; absent with errno. A relative path
    /// begins at the open directory `start`.
    static std::optional<FileDescriptor> open(const std::filesystem::path& path, int flags, int start = AT_FDCWD) {
        const int number = ::openat(start, path.c_str(), flags | O_CLOEXEC);
        if (number < 0) return std::nullopt;
        return std::optional<FileDescriptor>(std::in_place, number);
    }

    explicit FileDescriptor(int number) : number_(number) {}
    ~FileDescriptor() { ::close(number_); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int number() const { return number_; }

private:
    int number_;
};

}  // namespace tarvex::platform
