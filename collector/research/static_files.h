#pragma once

#include <optional>
#include <string_view>

namespace tarvex::collector {

/// A file of the page, part of the program.
struct StaticFile {
    std::string_view contentType;
    std::string_view contents;
};

/// Absent when the page has none of this path.
std::optional<StaticFile> staticFile(std::string_view path);

}  // namespace tarvex::collector
