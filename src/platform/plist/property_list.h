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
    /// The strings under their keys; absent for a value of another type.
    using Entries = std::map<std::string, std::optional<std::string>, std::less<>>;

    static constexpr std::size_t maximumSize = std::size_t{4} * 1024 * 1024;

    /// Null for a file that cannot be read, is larger than `maximumSize`, or that `parse` refuses.
    static std::unique_ptr<PropertyList> withContentsOfFile(const std::filesystem::path& path);

    /// Null for a damaged list, one whose root is no dictionary or whose text is not Unicode, and one built to exhaust
    /// the reader. Bounded in time, memory and stack for all `bytes`.
    static std::unique_ptr<PropertyList> parse(std::string_view bytes);

    explicit PropertyList(Entries entries) : entries_(std::move(entries)) {}

    bool contains(std::string_view key) const override;
    std::optional<std::string> stringForKey(std::string_view key) const override;

    /// This list, and the entries of `others` under the keys that it lacks.
    std::unique_ptr<PropertyList> withGapsFilled(const Entries& others) const;

private:
    Entries entries_;
};

/// True when libplist can read these bytes, a binary property list, at bounded cost. It follows nested and shared
/// objects recursively, one copy a reference, so that a small file can exhaust the stack or the memory, and it reads
/// damaged text as shorter text. Safe is a list of which every object that the root reaches lies inside `bytes`, nests
/// no deeper than 512 levels, takes no more than 4 MiB with a copy for each reference, and whose text is Unicode
/// without U+0000.
bool isSafeBinaryPropertyList(std::string_view bytes);

}  // namespace tarvex::platform
