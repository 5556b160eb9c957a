#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace tarvex::collector {

/// A file without a name, which goes with its owner. Reentrant.
class TemporaryFile {
public:
    /// Empty, and takes no bytes.
    TemporaryFile() = default;
    /// Throws `std::system_error` when the directory takes none.
    explicit TemporaryFile(const std::filesystem::path& directory);
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) noexcept;
    ~TemporaryFile();

    /// Throws `std::system_error`, the disk being full for one reason.
    void append(std::span<const std::byte> bytes);
    /// Reads from the offset, less than asked for at the end only. Throws `std::system_error`.
    std::size_t read(std::uint64_t offset, std::span<std::byte> into) const;

    std::uint64_t size() const { return size_; }

private:
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
};

}  // namespace tarvex::collector
