#include "collector/store/sqlite/database.h"

#include <chrono>
#include <thread>

#include "collector/store/store.h"
#include "embedded/store/sqlite/statements.sql.h"

namespace tarvex::collector {
namespace {

// A deletion, or the import of a large document by another process, holds the file for a while.
constexpr int busyMilliseconds = 60'000;

[[noreturn]] void failWith(sqlite3* database) {
    throw StoreUnavailable(std::string("the store's file cannot be used: ") +
                           (database != nullptr ? sqlite3_errmsg(database) : "out of memory"));
}

}  // namespace

bool Query::step() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    const std::string why = sqlite3_errmsg(sqlite3_db_handle(statement_.get()));
    reset();
    throw StoreUnavailable("the store's file cannot be used: " + why);
}

std::string Query::text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return {text != nullptr ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

std::string Query::blob(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
    return {bytes != nullptr ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

void Query::put(int place, const std::string& text) {
    sqlite3_bind_text64(statement_.get(), place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void Query::put(int place, std::span<const std::uint8_t> bytes) {
    sqlite3_bind_blob64(statement_.get(), place, bytes.data(), bytes.size(), SQLITE_STATIC);
}

void Query::put(int place, const std::optional<double>& value) {
    if (value)
        put(place, *value);
    else
        sqlite3_bind_null(statement_.get(), place);
}

Database::Database(const std::filesystem::path& path, const char* vfs)
    : statements_(embedded::store_sqlite_statements_sql) {
    sqlite3* database = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int result = sqlite3_open_v2(path.c_str(), &database, flags, vfs);
    database_.reset(database);
    if (result != SQLITE_OK) failWith(database);
    sqlite3_busy_timeout(database, busyMilliseconds);
}

void Database::run(const std::string& statements) {
    if (sqlite3_exec(database_.get(), statements.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

void Database::runPatiently(const std::string& statements) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(busyMilliseconds);
    while (true) {
        try {
            return run(statements);
        } catch (const StoreUnavailable&) {
            constexpr int primary = 0xff;
            const bool isBusy = (sqlite3_errcode(database_.get()) & primary) == SQLITE_BUSY;
            if (!isBusy || std::chrono::steady_clock::now() > end) throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

Query Database::prepare(const std::string& statement) {
    sqlite3_stmt* prepared = nullptr;
    const auto size = static_cast<int>(statement.size());
    if (sqlite3_prepare_v3(database_.get(), statement.c_str(), size, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr) !=
        SQLITE_OK)
        fail();
    return Query(prepared);
}

Query& Database::query(const std::string& name) {
    const auto known = queries_.find(name);
    if (known != queries_.end()) return known->second;
    return queries_.emplace(name, prepare(statements_.at(name))).first->second;
}

void Database::fail() const {
    failWith(database_.get());
}

Transaction::~Transaction() {
    if (isCommitted_) return;
    try {
        database_.run("ROLLBACK");
    } catch (const StoreUnavailable& failure) {
        static_cast<void>(failure);  // what had failed before may have rolled it back already
    }
}

void Transaction::commit() {
    database_.run("COMMIT");
    isCommitted_ = true;
}

}  // namespace tarvex::collector
