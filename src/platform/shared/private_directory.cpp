#include "platform/shared/private_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/shared/sync_directory.h"

namespace tarvex::platform {
namespace {

constexpr mode_t ownerOnly = S_IRWXU;

}  // namespace

void createPrivateDirectory(const std::filesystem::path& path) {
    bool created = ::mkdir(path.c_str(), ownerOnly) == 0;
    if (!created && errno == ENOENT && path.has_relative_path()) {
        createPrivateDirectory(path.parent_path());
        created = ::mkdir(path.c_str(), ownerOnly) == 0;
    }
    if (!created) return;
    // A umask can take permissions from the owner, too.
    ::chmod(path.c_str(), ownerOnly);
    syncDirectory(directoryOf(path));
}

void makeDirectoryPrivate(const std::filesystem::path& path) {
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != ::geteuid()) return;
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) ::chmod(path.c_str(), ownerOnly);
}

}  // namespace tarvex::platform
