#pragma once

#include <algorithm>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The application's small persistent key-value store: consent flags and the user identifier.
/// Thread-safe, also against other processes of the application. A write is durable when it returns; one that could
/// not be written is still read back for the life of the process.
class TARVEX_EXPORT UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// False when missing. A string is read by `isTrueText`.
    virtual bool boolForKey(std::string_view key) const = 0;

    /// Absent when missing; a bool is no string.
    virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;

    /// The string that is stored durably under the key; absent when there is none. While the store cannot be read, or
    /// the string still waits to be written, the error is a sentence with the key or the file.
    ///
    /// By default the result of `stringForKey`, for a store that keeps every write.
    virtual std::expected<std::optional<std::string>, std::string> durableStringForKey(std::string_view key) const {
        return stringForKey(key);
    }

    virtual void setValueForKey(bool value, std::string_view key) = 0;
    virtual void setValueForKey(std::string_view value, std::string_view key) = 0;

    /// A literal is a string, though it would sooner become a bool.
    void setValueForKey(const char* value, std::string_view key) { setValueForKey(std::string_view(value), key); }

    /// Stores `value` unless a string is there already; returns the one that is stored afterwards.
    virtual std::string setStringIfAbsent(std::string_view value, std::string_view key) = 0;

    /// Removes the value, of any type; the key reads as missing afterwards. The library itself removes nothing: this is
    /// for a host whose user withdraws a consent.
    ///
    /// By default stores false, which reads as missing too.
    virtual void removeObjectForKey(std::string_view key) { setValueForKey(false, key); }

protected:
    /// A string among the defaults, read as a bool. As on the phone platform, it is true when it begins with Y, y, T, t
    /// or a number other than 0.
    static bool isTrueText(std::string_view text) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
        if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
        text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
        return !text.empty() && std::string_view("YyTt123456789").contains(text.front());
    }
};

}  // namespace tarvex::platform
