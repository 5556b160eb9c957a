#include "platform/sqlite/sqlite_user_defaults.h"

#include <utility>

#include "tarvex/platform/diagnostics.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;

// The host's main loop waits.
constexpr auto patience = 50ms;
constexpr auto openingPatience = 100ms;

constexpr const char* creation = "CREATE TABLE IF NOT EXISTS user_defaults(key TEXT PRIMARY KEY, value) WITHOUT ROWID";

/// ?3: a string does not take the place of a string, which another process has stored.
constexpr std::string_view upsert =
    "INSERT INTO user_defaults(key, value) VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE SET value = excluded.value"
    " WHERE NOT ?3 OR typeof(value) <> 'text'";

constexpr std::string_view removal = "DELETE FROM user_defaults WHERE key = ?1";
constexpr std::string_view selection = "SELECT value FROM user_defaults WHERE key = ?1";

void bindText(sqlite3_stmt* statement, int parameter, std::string_view text) {
    sqlite3_bind_text64(statement, parameter, text.empty() ? "" : text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

/// SQLite takes the log for that of whatever database lies beside it, and a damaged log for an empty one. Where this
/// fails, nothing is lost, and it is tried again after the next write or opening.
void emptyLog(SqliteConnection& connection) {
    connection.waitAtMost(0ms);
    sqlite3_wal_checkpoint_v2(connection.handle(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

}  // namespace

SqliteUserDefaults::SqliteUserDefaults(std::function<std::filesystem::path()> directory, const char* vfs)
    : directory_(std::move(directory)), vfs_(vfs) {}

bool SqliteUserDefaults::boolForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const auto found = value(key);
    if (!found) return false;
    const auto* text = std::get_if<std::string>(&*found);
    return text ? isTrueText(*text) : std::get<bool>(*found);
}

std::optional<std::string> SqliteUserDefaults::stringForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    return stringIn(value(key));
}

std::expected<std::optional<std::string>, std::string> SqliteUserDefaults::durableStringForKey(
    std::string_view key) const {
    const std::lock_guard lock(mutex_);
    auto inFile = read(key);
    if (!inFile) return std::unexpected(std::move(inFile.error().description));
    if (unwritten(key, *inFile)) return std::unexpected("value cannot be written yet: " + std::string(key));
    return stringIn(std::move(*inFile));
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
    if (auto present = stringIn(this->value(key))) return std::move(*present);
    const auto waiting = unwritten_.find(key);
    const bool isRemoved = waiting != unwritten_.end() && !waiting->second.value;
    write(key, {.value = std::string(value), .onlyIfAbsent = !isRemoved});
    return stringIn(this->value(key)).value_or(std::string(value));
}

void SqliteUserDefaults::removeObjectForKey(std::string_view key) {
    const std::lock_guard lock(mutex_);
    write(key, {});
}

std::optional<std::string> SqliteUserDefaults::stringIn(std::optional<Value> value) {
    auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text ? std::optional(std::move(*text)) : std::nullopt;
}

/// The value as if everything had been written.
std::optional<SqliteUserDefaults::Value> SqliteUserDefaults::value(std::string_view key) const {
    auto found = read(key);
    if (!found) {
        const auto known = lastKnown_.find(key);
        found = known != lastKnown_.end() ? std::optional(known->second) : std::nullopt;
    }
    if (const Unwritten* waiting = unwritten(key, *found)) return waiting->value;
    return *std::move(found);
}

/// What is going to take the place of `stored`; null for nothing.
const SqliteUserDefaults::Unwritten* SqliteUserDefaults::unwritten(std::string_view key,
                                                                   const std::optional<Value>& stored) const {
    const auto waiting = unwritten_.find(key);
    if (waiting == unwritten_.end()) return nullptr;
    const bool givesWay = waiting->second.onlyIfAbsent && stored && std::holds_alternative<std::string>(*stored);
    return givesWay ? nullptr : &waiting->second;
}

/// The value in the file, after a try to write the unwritten ones.
std::expected<std::optional<SqliteUserDefaults::Value>, StoreError> SqliteUserDefaults::read(
    std::string_view key) const {
    auto written = open();
    if (!written) {
        finish(written);
        return std::unexpected(std::move(written.error()));
    }
    written = writeUnwritten();
    auto found = stored(key);
    if (!found) {
        // By the next use the file may have been repaired.
        connection_.reset();
        finish(std::unexpected(found.error()));
        return found;
    }
    finish(written);
    if (const auto& present = *found)
        lastKnown_.insert_or_assign(std::string(key), *present);
    else if (const auto known = lastKnown_.find(key); known != lastKnown_.end())
        lastKnown_.erase(known);
    return found;
}

std::expected<std::optional<SqliteUserDefaults::Value>, StoreError> SqliteUserDefaults::stored(
    std::string_view key) const {
    connection_->waitAtMost(patient_ ? patience : 0ms);
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
    auto written = open();
    if (written) written = writeUnwritten();
    finish(written);
}

std::expected<void, StoreError> SqliteUserDefaults::writeUnwritten() const {
    if (unwritten_.empty()) return {};
    if (auto written = writeAll(); !written) return written;
    for (auto& [name, entry] : unwritten_) {
        if (!entry.value)
            lastKnown_.erase(name);
        else if (!entry.onlyIfAbsent)
            lastKnown_.insert_or_assign(name, *std::move(entry.value));
    }
    unwritten_.clear();
    return {};
}

std::expected<void, StoreError> SqliteUserDefaults::writeAll() const {
    connection_->waitAtMost(patient_ ? patience : 0ms);
    SqliteTransaction transaction(*connection_);
    if (!transaction.begun()) return transaction.begun();
    auto insert = connection_->prepare(upsert);
    if (!insert) return std::unexpected(std::move(insert.error()));
    auto remove = connection_->prepare(removal);
    if (!remove) return std::unexpected(std::move(remove.error()));
    for (const auto& [key, entry] : unwritten_) {
        const auto& [value, onlyIfAbsent] = entry;
        const Execution execution(value ? insert->get() : remove->get());
        bindText(execution.get(), 1, key);
        if (value) {
            if (const auto* text = std::get_if<std::string>(&*value))
                bindText(execution.get(), 2, *text);
            else
                sqlite3_bind_int(execution.get(), 2, std::get<bool>(*value) ? 1 : 0);
            sqlite3_bind_int(execution.get(), 3, onlyIfAbsent ? 1 : 0);
        }
        if (sqlite3_step(execution.get()) != SQLITE_DONE) return std::unexpected(connection_->error());
    }
    auto committed = transaction.commit();
    if (committed) emptyLog(*connection_);
    return committed;
}

std::expected<void, StoreError> SqliteUserDefaults::open() const {
    const bool moved = connection_ && connection_->hasMoved();
    if (connection_ && !moved) return {};
    connection_.reset();
    const auto file = directory_() / "UserDefaults.sqlite";
    // The values of a removed file are taken back. A file that cannot be examined may still be the same.
    std::error_code unknown;
    if (const bool exists = std::filesystem::exists(file, unknown); !unknown && (moved || !exists)) lastKnown_.clear();
    auto connection = SqliteConnection::open(file, vfs_, patient_ ? openingPatience : 0ms);
    if (!connection) return std::unexpected(std::move(connection.error()));
    if (auto configured = (*connection)->configure(); !configured) return configured;
    if (auto created = (*connection)->execute(creation); !created) return created;
    // Not tidied up when it is closed: without its log, it could not be read in a directory that is read-only then.
    emptyLog(**connection);
    connection_ = std::move(*connection);
    return {};
}

void SqliteUserDefaults::finish(const std::expected<void, StoreError>& outcome) const {
    patient_ = outcome.has_value();
    if (outcome) return;
    // By the next use the file may be writable. Otherwise it stays open: it can be read.
    if (connection_ && connection_->readOnly()) connection_.reset();
    warning_.log("user defaults are kept in memory for now: " + outcome.error().description);
}

}  // namespace tarvex::platform
