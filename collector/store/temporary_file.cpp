#include "collector/store/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tarvex::collector {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

TemporaryFile::TemporaryFile(const std::filesystem::path& directory)
    : descriptor_(::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) fail("a temporary file cannot be made");
}

TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), size_(std::exchange(other.size_, 0)) {}

TemporaryFile& TemporaryFile::operator=(TemporaryFile&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(size_, other.size_);
    return *this;
}

TemporaryFile::~TemporaryFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

void TemporaryFile::append(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const auto written = ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(size_));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail("a temporary file cannot be written");
        size_ += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

std::size_t TemporaryFile::read(std::uint64_t offset, std::span<std::byte> into) const {
    std::size_t total = 0;
    while (total < into.size() && descriptor_ >= 0) {
        const auto count =
            ::pread(descriptor_, into.data() + total, into.size() - total, static_cast<off_t>(offset + total));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("a temporary file cannot be read");
        if (count == 0) break;
        total += static_cast<std::size_t>(count);
    }
    return total;
}

}  // namespace tarvex::collector
