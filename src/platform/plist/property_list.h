#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

/// The root dictionary of a property list, XML or binary.
class PropertyList final : public PropertyListDictionary {
public:
    static constexpr std::size_t maximumSize = std::size_t{4} * 1024 * 1024;

    /// Null for a file that cannot be read, is larger than `maximumSize`, or that `parse` refuses.
    static std::unique_ptr<PropertyList> withContentsOfFile(const std::filesystem::path& path);

    /// Null for what is damaged, has no dictionary as its root, holds text that is not Unicode, or is built to exhaust
    /// the reader. Bounded in time, memory and stack whatever `bytes` hold.
    static std::unique_ptr<PropertyList> parse(std::string_view bytes);

    bool contains(std::string_view key) const override;
    std::optional<std::string> stringForKey(std::string_view key) const override;

private:
    /// The strings under their keys; absent for a value of another type.
    using Entries = std::map<std::string, std::optional<std::string>, std::less<>>;

    explicit PropertyList(Entries entries) : entries_(std::move(entries)) {}

    Entries entries_;
};

}  // namespace tarvex::platform
