#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "store/snapshot.h"

namespace tarvex::tool {

struct Verification {
    std::int64_t records = 0;     ///< that could be read from the store
    std::int64_t unreadable = 0;  ///< of these, those that an upload leaves out
    std::optional<double> first;  ///< seconds since 1970
    std::optional<double> last;
    std::vector<std::string> problems;  ///< a sentence each; none for a store that is whole
};

/// Looks at every page and every record of the store and the defaults. One sentence when it is no store.
std::expected<Verification, std::string> verify(const Snapshot& snapshot);

}  // namespace tarvex::tool
