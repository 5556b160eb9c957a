#pragma once

#include <expected>
#include <optional>
#include <string>

#include "host.h"
#include "store/snapshot.h"

namespace tarvex::tool {

/// The document that the host would send now.
struct Preview {
    std::string document;
    bool hasUserIdentifier = true;  ///< else the document's is empty: the host makes one when it first needs it
};

/// Made by the library's own code, from the copy. Samples that a running host has not stored yet are not in it. One
/// sentence when the host could send none.
std::expected<Preview, std::string> preview(const Snapshot& snapshot, const Host& host);

}  // namespace tarvex::tool
