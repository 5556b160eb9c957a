#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The resource bundle identifier of the library itself.
inline constexpr std::string_view libraryBundleIdentifier = "org.tarvex.Tarvex";

/// A property list whose root is a dictionary, read into memory. Thread-safe: it never changes.
class TARVEX_EXPORT PropertyListDictionary {
public:
    virtual ~PropertyListDictionary() = default;

    /// True when there is a value under `key`, of any type.
    virtual bool contains(std::string_view key) const = 0;
    /// The value under `key` when it is a string of valid UTF-8.
    virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;
};

/// A directory with resources and, for an application, its Info.plist. Thread-safe.
class TARVEX_EXPORT Bundle {
public:
    virtual ~Bundle() = default;

    /// The path of the resource `name`.`type`; absent when there is no such file.
    virtual std::optional<std::filesystem::path> pathForResource(std::string_view name,
                                                                 std::string_view type) const = 0;

    /// The string under `key` of the Info.plist, localized for the process's message language where the bundle has
    /// it; absent when the key is missing, the value is no string (a localized one hides the list's), or the list
    /// cannot be read.
    virtual std::optional<std::string> stringForInfoDictionaryKey(std::string_view key) const = 0;

    /// "CFBundleIdentifier" of the Info.plist.
    virtual std::optional<std::string> bundleIdentifier() const = 0;
};

/// Finds bundles and reads property lists. Thread-safe; outlives the bundles that it returns.
class TARVEX_EXPORT Bundles {
public:
    virtual ~Bundles() = default;

    /// The host application's bundle.
    virtual const Bundle& mainBundle() const = 0;

    /// The bundle with this identifier; null when there is none. The library's own is `libraryBundleIdentifier`.
    virtual const Bundle* bundleWithIdentifier(std::string_view identifier) const = 0;

    /// The dictionary in the file at `path`, read afresh; null when it is unreadable, damaged or no dictionary.
    virtual std::unique_ptr<PropertyListDictionary> dictionaryWithContentsOfFile(
        const std::filesystem::path& path) const = 0;
};

}  // namespace tarvex::platform
