#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string_view>

namespace tarvex::collector {

/// Writes a file that others see whole or not at all; it takes the place of one that is there. `mode` holds from the
/// first moment, less the process's mask. Where root writes it, it belongs to the owner of its directory, whose program
/// is to read it. Throws `std::system_error`. It is not synced to the disk.
void writeWholeFile(const std::filesystem::path& file, std::string_view text, ::mode_t mode);

}  // namespace tarvex::collector
