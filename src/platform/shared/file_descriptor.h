#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <utility>

namespace tarvex::platform {

/// A file descriptor, closed when this is destroyed. Reentrant.
class FileDescriptor {
public:
    /// Opens the file with `flags`; programs that this process starts do not inherit it. Absent with errno. A relative
    /// path begins at the open directory `start`.
    static std::optional<FileDescriptor> open(const std::filesystem::path& path, int flags, int start = AT_FDCWD) {
        const int number = ::openat(start, path.c_str(), flags | O_CLOEXEC);
        if (number < 0) return std::nullopt;
        return std::optional<FileDescriptor>(std::in_place, number);
    }

    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    ~FileDescriptor() {
        if (number_ >= 0) ::close(number_);
    }
    FileDescriptor& operator=(FileDescriptor&&) = delete;

    int number() const { return number_; }

private:
    int number_;
};

}  // namespace tarvex::platform
