#include "tarvex/testing/memory_user_defaults.h"

namespace tarvex::testing {

bool MemoryUserDefaults::boolForKey(std::string_view key) const {
    const std::scoped_lock lock(mutex_);
    const auto entry = values_.find(key);
    if (entry == values_.end()) return false;
    const auto* text = std::get_if<std::string>(&entry->second);
    return text != nullptr ? isTrueText(*text) : std::get<bool>(entry->second);
}

std::optional<std::string> MemoryUserDefaults::stringForKey(std::string_view key) const {
    const std::scoped_lock lock(mutex_);
    const auto entry = values_.find(key);
    const std::string* value = entry == values_.end() ? nullptr : std::get_if<std::string>(&entry->second);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

void MemoryUserDefaults::setValueForKey(bool value, std::string_view key) {
    const std::scoped_lock lock(mutex_);
    values_.insert_or_assign(std::string(key), value);
}

void MemoryUserDefaults::setValueForKey(std::string_view value, std::string_view key) {
    const std::scoped_lock lock(mutex_);
    values_.insert_or_assign(std::string(key), std::string(value));
}

std::string MemoryUserDefaults::setStringIfAbsent(std::string_view value, std::string_view key) {
    const std::scoped_lock lock(mutex_);
    auto& stored = values_[std::string(key)];
    if (!std::holds_alternative<std::string>(stored)) stored = std::string(value);
    return std::get<std::string>(stored);
}

void MemoryUserDefaults::removeObjectForKey(std::string_view key) {
    const std::scoped_lock lock(mutex_);
    if (const auto entry = values_.find(key); entry != values_.end()) values_.erase(entry);
}

}  // namespace tarvex::testing
