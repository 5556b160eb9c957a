#pragma once

#include <link.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarvex::platform {

/// The path from the root directory, independent of later changes of the working directory; `path` itself when there is
/// no working directory.
inline std::filesystem::path absolutePath(std::filesystem::path path) {
    std::error_code failure;
    auto absolute = std::filesystem::absolute(path, failure);
    if (!failure) path = std::move(absolute);
    return path;
}

/// The file that the process runs, also after an update has replaced it.
inline std::filesystem::path executablePath() {
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

/// The directories that may hold the host's Info.plist: that of `executable`, then ../share/<its name>/ beside it.
inline std::array<std::filesystem::path, 2> bundleDirectoriesOf(const std::filesystem::path& executable) {
    const auto directory = executable.parent_path();
    return {directory, directory.parent_path() / "share" / executable.filename()};
}

/// The library, or the executable, that holds the code of the caller; links are followed.
inline std::filesystem::path fileOfThisLibrary() {
    static const char insideThisLibrary = 0;
    struct Search {
        std::uintptr_t address = reinterpret_cast<std::uintptr_t>(&insideThisLibrary);
        bool isFirst = true;  ///< the main program, which the linker knows by no name or as it was called
        std::filesystem::path file;
    } search;
    ::dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t, void* context) {
            auto& [address, isFirst, file] = *static_cast<Search*>(context);
            const bool holdsIt =
                std::ranges::any_of(std::span(object->dlpi_phdr, object->dlpi_phnum), [&](const auto& segment) {
                    return segment.p_type == PT_LOAD && address - object->dlpi_addr - segment.p_vaddr < segment.p_memsz;
                });
            if (holdsIt && !isFirst) file = object->dlpi_name;
            isFirst = false;
            return holdsIt ? 1 : 0;
        },
        &search);
    std::filesystem::path file = search.file.empty() ? executablePath() : std::move(search.file);
    std::error_code failure;
    auto resolved = std::filesystem::canonical(file, failure);
    return failure ? file : resolved;
}

/// The directories that may hold the resources of the library at `libraryDirectory`: share/tarvex beside it, or one
/// level further up where libraries lie in a directory of their architecture.
inline std::array<std::filesystem::path, 2> resourceDirectoriesOf(const std::filesystem::path& libraryDirectory) {
    const auto above = libraryDirectory.parent_path();
    return {above / "share" / "tarvex", above.parent_path() / "share" / "tarvex"};
}

}  // namespace tarvex::platform
