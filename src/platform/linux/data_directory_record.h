#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace tarvex::platform {

/// The name of the directory that a host used last, kept for the day on which the host's property list cannot be read.
/// It is a symbolic link to that directory, two levels below the directory where both lie.
class DataDirectoryRecord {
public:
    explicit DataDirectoryRecord(std::filesystem::path link) : link_(std::move(link)) {}

    std::optional<std::string> name() const;

    /// Replaces the record at once or, when it cannot be written, not at all.
    void setName(const std::string& name) const;

private:
    std::filesystem::path link_;
};

}  // namespace tarvex::platform
