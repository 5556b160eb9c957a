#include "platform/shared/regular_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/shared/file_descriptor.h"

namespace tarvex::platform {
namespace {

bool isRegularFile(const FileDescriptor& file) {
    struct stat status{};
    return ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::optional<std::string> contentsOfRegularFile(const std::filesystem::path& path, std::size_t maximumSize,
                                                 int start) {
    const auto file = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY, start);
    if (!file || !isRegularFile(*file)) return std::nullopt;

    std::string contents;
    while (contents.size() <= maximumSize) {
        const std::size_t size = contents.size();
        const std::size_t chunk = std::min<std::size_t>(65'536, maximumSize + 1 - size);
        contents.resize(size + chunk);
        const ssize_t count = ::read(file->number(), contents.data() + size, chunk);
        if (count < 0 && errno != EINTR) return std::nullopt;
        contents.resize(size + static_cast<std::size_t>(count > 0 ? count : 0));
        if (count == 0) return contents.size() <= maximumSize ? std::optional(std::move(contents)) : std::nullopt;
    }
    return std::nullopt;
}

}  // namespace tarvex::platform
