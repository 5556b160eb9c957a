#include "platform/linux/store/sqlite_user_defaults.h"

#include <iostream>
#include <utility>

#include "platform/linux/store/sqlite_transaction.h"
#include "platform/linux/store/truth_of_text.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 1000ms;
constexpr auto openingPatience = 5000ms;

constexpr const char* creation = "CREATE TABLE IF NOT EXISTS user_defaults(key TEXT PRIMARY KEY, value) WITHOUT ROWID";

/// ?3: a string does not take the place of a string, which another process has stored.
constexpr std::string_view upsert =
    "INSERT INTO user_defaults(key, value) VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE SET value = excluded.value"
    " WHERE NOT ?3 OR typeof(value) <> 'text'";

constexpr std::string_view selection = "SELECT value FROM user_defaults WHERE key = ?1";

void bindText(sqlite3_stmt* statement, int parameter, std::string_view text) {
    sqlite3_bind_text64(statement, parameter, text.empty() ? "" : text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

}  // namespace

SqliteUserDefaults::SqliteUserDefaults(std::function<std::filesystem::path()> directory, const char* vfs)
    : directory_(std::move(directory)), vfs_(vfs) {}

bool SqliteUserDefaults::boolForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const auto found = value(key);
    if (!found) return false;
    const auto* text = std::get_if<std::string>(&*found);
    return text ? isTrue(*text) : std::get<bool>(*found);
}

std::optional<std::string> SqliteUserDefaults::stringForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    return string(key);
}

void SqliteUserDefaults::setValueForKey(bool value, std::string_view key) {
    const std::lock_guard lock(mutex_);
    write(key, {.value = value});
}

void SqliteUserDefaults::setValueForKey(std::string_view value, std::string_view key) {
    const std::lock_guard lock(mutex_);
    write(key, {.value = std::string(value)});
}

std::string SqliteUserDefaults::setStringIfAbsent(std::string_view value, std::string_view key) {
    const std::lock_guard lock(mutex_);
    if (auto present = string(key)) return std::move(*present);
    write(key, {.value = std::string(value), .onlyIfAbsent = true});
    return string(key).value_or(std::string(value));
}

std::optional<std::string> SqliteUserDefaults::string(std::string_view key) const {
    auto found = value(key);
    auto* text = found ? std::get_if<std::string>(&*found) : nullptr;
    return text ? std::optional(std::move(*text)) : std::nullopt;
}

/// What a process would read that has written everything.
std::optional<SqliteUserDefaults::Value> SqliteUserDefaults::value(std::string_view key) const {
    std::optional<Value> found = storedOrLastKnown(key);
    const auto unwritten = unwritten_.find(key);
    if (unwritten == unwritten_.end()) return found;
    const bool givesWay = unwritten->second.onlyIfAbsent && found && std::holds_alternative<std::string>(*found);
    return givesWay ? found : unwritten->second.value;
}

std::optional<SqliteUserDefaults::Value> SqliteUserDefaults::storedOrLastKnown(std::string_view key) const {
    auto inFile = stored(key);
    const auto known = lastKnown_.find(key);
    if (!inFile) {
        giveUp(inFile.error());
        return known != lastKnown_.end() ? std::optional(known->second) : std::nullopt;
    }
    if (const auto& found = *inFile)
        lastKnown_.insert_or_assign(std::string(key), *found);
    else if (known != lastKnown_.end())
        lastKnown_.erase(known);
    return std::move(*inFile);
}

std::expected<std::optional<SqliteUserDefaults::Value>, StoreError> SqliteUserDefaults::stored(
    std::string_view key) const {
    if (auto opened = open(); !opened) return std::unexpected(std::move(opened.error()));
    connection_->waitAtMost(patience);
    auto select = connection_->prepare(selection);
    if (!select) return std::unexpected(std::move(select.error()));
    sqlite3_stmt* row = select->get();
    bindText(row, 1, key);
    const int code = sqlite3_step(row);
    if (code == SQLITE_DONE) return std::nullopt;
    if (code != SQLITE_ROW) return std::unexpected(connection_->error());
    switch (sqlite3_column_type(row, 0)) {
        case SQLITE_INTEGER:
            return Value(sqlite3_column_int64(row, 0) != 0);
        case SQLITE_TEXT:
            return Value(std::string(columnText(row, 0)));
        default:
            return std::nullopt;
    }
}

void SqliteUserDefaults::write(std::string_view key, Unwritten value) {
    unwritten_.insert_or_assign(std::string(key), std::move(value));
    if (auto written = writeAll(); !written) return giveUp(written.error());
    for (auto& [name, entry] : unwritten_)
        if (!entry.onlyIfAbsent) lastKnown_.insert_or_assign(name, std::move(entry.value));
    unwritten_.clear();
}

std::expected<void, StoreError> SqliteUserDefaults::writeAll() {
    if (auto opened = open(); !opened) return opened;
    connection_->waitAtMost(patience);
    SqliteTransaction transaction(*connection_);
    if (!transaction.begun()) return transaction.begun();
    auto insert = connection_->prepare(upsert);
    if (!insert) return std::unexpected(std::move(insert.error()));
    for (const auto& [key, entry] : unwritten_) {
        const auto& [value, onlyIfAbsent] = entry;
        const Execution execution(insert->get());
        bindText(execution.get(), 1, key);
        sqlite3_bind_int(execution.get(), 3, onlyIfAbsent ? 1 : 0);
        if (const auto* text = std::get_if<std::string>(&value))
            bindText(execution.get(), 2, *text);
        else
            sqlite3_bind_int(execution.get(), 2, std::get<bool>(value) ? 1 : 0);
        if (sqlite3_step(execution.get()) != SQLITE_DONE) return std::unexpected(connection_->error());
    }
    return transaction.commit();
}

std::expected<void, StoreError> SqliteUserDefaults::open() const {
    if (connection_) return {};
    auto connection = SqliteConnection::open(directory_() / "UserDefaults.sqlite", vfs_, openingPatience);
    if (!connection) return std::unexpected(std::move(connection.error()));
    if (auto configured = (*connection)->configure(); !configured) return configured;
    if (auto created = (*connection)->execute(creation); !created) return created;
    // Not tidied up when it is closed: without its log, it could not be read in a directory that is read-only then.
    connection_ = std::move(*connection);
    return {};
}

/// The next use opens the file afresh: by then it may have been repaired, or another may lie in its place.
void SqliteUserDefaults::giveUp(const StoreError& error) const {
    connection_.reset();
    if (!std::exchange(reported_, true))
        std::cerr << "Tarvex: user defaults are kept in memory for now: " + error.description + "\n";
}

}  // namespace tarvex::platform
