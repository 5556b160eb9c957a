#include "collector/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace tarvex::collector {
namespace {

bool giveToOwnerOfDirectory(int descriptor, const std::filesystem::path& file) {
    struct ::stat directory{};
    return ::stat(file.parent_path().c_str(), &directory) == 0 &&
           ::fchown(descriptor, directory.st_uid, directory.st_gid) == 0;
}

}  // namespace

void writeWholeFile(const std::filesystem::path& file, std::string_view text, ::mode_t mode) {
    const auto fail = [](const std::filesystem::path& path) {
        throw std::system_error(errno, std::generic_category(), path.string());
    };
    const std::string unfinished = file.string() + ".part";
    ::unlink(unfinished.c_str());
    const int descriptor = ::open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor < 0) fail(unfinished);
    const bool isWhole = std::cmp_equal(::write(descriptor, text.data(), text.size()), text.size()) &&
                         (::geteuid() != 0 || giveToOwnerOfDirectory(descriptor, file));
    ::close(descriptor);
    if (!isWhole) fail(unfinished);
    if (::rename(unfinished.c_str(), file.c_str()) != 0) fail(file);
}

}  // namespace tarvex::collector
