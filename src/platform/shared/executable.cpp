#include "platform/shared/executable.h"

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/shared/absolute_path.h"

namespace tarvex::platform {

std::filesystem::path executablePath() {
    std::error_code failure;
    auto link = std::filesystem::read_symlink("/proc/self/exe", failure);
    if (failure) return absolutePath(program_invocation_name);

    // The kernel marks a file that an update has removed; the update's own file has the name without the mark.
    constexpr std::string_view mark = " (deleted)";
    const std::string& path = link.native();
    if (path.ends_with(mark) && !std::filesystem::exists(link, failure))
        return path.substr(0, path.size() - mark.size());
    return link;
}

std::array<std::filesystem::path, 2> bundleDirectoriesOf(const std::filesystem::path& executable) {
    const auto directory = executable.parent_path();
    return {directory, directory.parent_path() / "share" / executable.filename()};
}

}  // namespace tarvex::platform
