#include "platform/shared/private_files.h"

#include <unistd.h>

#include <cerrno>

#include "platform/shared/file_descriptor.h"

namespace tarvex::platform {

void createPrivateDirectory(const std::filesystem::path& path) {
    bool created = ::mkdir(path.c_str(), privateDirectory) == 0;
    if (!created && errno == ENOENT && path.has_relative_path()) {
        createPrivateDirectory(path.parent_path());
        created = ::mkdir(path.c_str(), privateDirectory) == 0;
    }
    if (!created) return;
    // A umask can take permissions from the owner, too.
    ::chmod(path.c_str(), privateDirectory);
    syncDirectory(directoryOf(path));
}

void makePrivate(const std::filesystem::path& path) {
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0 || status.st_uid != ::geteuid()) return;
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
    ::chmod(path.c_str(), S_ISDIR(status.st_mode) ? privateDirectory : status.st_mode & S_IRWXU);
}

bool syncDirectory(const std::filesystem::path& path) {
    const auto directory = FileDescriptor::open(path, O_RDONLY | O_DIRECTORY);
    return directory && ::fsync(directory->number()) == 0;
}

}  // namespace tarvex::platform
