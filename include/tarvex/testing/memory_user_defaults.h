#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tarvex/export.h"
#include "tarvex/platform/user_defaults.h"

namespace tarvex::testing {

/// User defaults that live in memory and start empty, for tests that must not touch the disk. Thread-safe.
class TARVEX_EXPORT MemoryUserDefaults final : public platform::UserDefaults {
public:
    bool boolForKey(std::string_view key) const override;
    std::optional<std::string> stringForKey(std::string_view key) const override;
    using UserDefaults::setValueForKey;
    void setValueForKey(bool value, std::string_view key) override;
    void setValueForKey(std::string_view value, std::string_view key) override;
    std::string setStringIfAbsent(std::string_view value, std::string_view key) override;
    void removeObjectForKey(std::string_view key) override;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::variant<bool, std::string>, std::less<>> values_;
};

}  // namespace tarvex::testing
