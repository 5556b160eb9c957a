#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvex::collector {

/// What a request asks for.
struct Target {
    std::string path;                                        ///< decoded; begins with a slash
    std::vector<std::pair<std::string, std::string>> query;  ///< decoded, in the order of the request
};

/// Takes the target of a request line apart. Absent when it is malformed, or leads out of the place that it names: a
/// bad escape, a control character, or a segment `.` or `..` in the path.
std::optional<Target> parseTarget(std::string_view target);

}  // namespace tarvex::collector
