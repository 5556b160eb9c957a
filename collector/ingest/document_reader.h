#pragma once

#include <filesystem>
#include <stdexcept>

#include "collector/store/document.h"
#include "collector/store/temporary_file.h"

namespace tarvex::collector {

/// The body is no document at all: one sentence for whoever posted it.
class NotADocument : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads and checks a posted body, in bounded memory whatever its size. A record that cannot be read is left out and
/// counted. Throws `NotADocument`, and `std::system_error` when the disk of the spool fails.
Document readDocument(const TemporaryFile& body, const std::filesystem::path& spool);

}  // namespace tarvex::collector
