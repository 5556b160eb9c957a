#include "platform/sqlite/sqlite_connection.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/shared/private_files.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;

StoreError::Cause causeOf(int code) {
    switch (code & 0xFF) {
        case SQLITE_BUSY:
            return StoreError::Cause::busy;
        case SQLITE_FULL:
            return StoreError::Cause::noRoom;
        default:
            // A quota that is used up, and an index for which there is no room.
            return code == SQLITE_IOERR_WRITE || code == SQLITE_IOERR_SHMSIZE ? StoreError::Cause::noRoom
                                                                              : StoreError::Cause::other;
    }
}

StoreError describe(const std::filesystem::path& path, std::string_view message, int code) {
    StoreError error{.description = {}, .userInfo = {}, .cause = causeOf(code)};
    error.description.append(message).append(": ").append(path.native());
    error.userInfo.append(R"(["file": ")").append(path.native()).append(R"(", "code": )");
    error.userInfo.append(std::to_string(code)).append("]");
    return error;
}

std::unexpected<StoreError> systemError(const std::filesystem::path& path) {
    const int code = errno;
    auto error = describe(path, std::system_category().message(code), code);
    error.cause = code == ENOSPC || code == EDQUOT ? StoreError::Cause::noRoom : StoreError::Cause::other;
    return std::unexpected(std::move(error));
}

/// Like SQLite, takes a file of one byte for an empty one.
bool isMissingOrEmpty(const std::filesystem::path& path) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(path, missing);
    return missing || size <= 1;
}

/// The database is for this user alone. Only one that is not there yet is opened: closing a descriptor of one that is
/// would drop the locks that other connections of the process hold on it.
std::expected<void, StoreError> createPrivateFile(const std::filesystem::path& path) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, privateFile);
    if (descriptor < 0) {
        if (errno != EEXIST) return systemError(path);
        for (const char* suffix : {"", "-wal", "-shm"})
            makePrivate(path.native() + suffix);
        return {};
    }
    const bool restricted = fchmod(descriptor, privateFile) == 0;
    close(descriptor);
    if (!restricted || !syncDirectory(directoryOf(path))) return systemError(path);
    return {};
}

}  // namespace

std::string_view textOf(sqlite3_value* value) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return {text, text == nullptr ? 0 : static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

std::string_view columnText(sqlite3_stmt* row, int column) {
    return textOf(sqlite3_column_value(row, column));
}

std::expected<std::unique_ptr<SqliteConnection>, StoreError> SqliteConnection::open(const std::filesystem::path& path,
                                                                                    const char* vfs,
                                                                                    std::chrono::milliseconds wait) {
    // SQLite deletes a log whose database is empty, and with it the records that could be rescued from the log.
    // The log is looked at first: a process that is just creating both makes it last.
    if (!isMissingOrEmpty(path.native() + "-wal") && isMissingOrEmpty(path))
        return std::unexpected(describe(path, "database is empty but its log is not", SQLITE_CORRUPT));
    if (auto created = createPrivateFile(path); !created) return std::unexpected(std::move(created.error()));

    std::unique_ptr<SqliteConnection> connection(new SqliteConnection(path, vfs));
    sqlite3* database = nullptr;
    // NOMUTEX: the owner lets one thread at a time in, a lock of SQLite's own would only cost.
    const int code = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, vfs);
    connection->database_.reset(database);
    if (code != SQLITE_OK)
        return std::unexpected(describe(path, database ? sqlite3_errmsg(database) : sqlite3_errstr(code), code));
    sqlite3_extended_result_codes(database, 1);
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_busy_handler(database, &SqliteConnection::waitForOthers, connection.get());
    connection->waitAtMost(wait);
    return connection;
}

std::expected<void, StoreError> SqliteConnection::configure() {
    if (auto done = execute("PRAGMA page_size=4096"); !done) return done;
    // FULL, not NORMAL: an acknowledged write must survive a power cut, and a sample a second can afford the sync.
    if (auto done = execute("PRAGMA synchronous=FULL; PRAGMA temp_store=MEMORY; PRAGMA secure_delete=FAST"); !done)
        return done;
    return switchToLog();
}

void SqliteConnection::tidyUpWhenClosed() const {
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

void SqliteConnection::leaveFilesWhenClosed() const {
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

bool SqliteConnection::hasMoved() const {
    int moved = 0;
    sqlite3_file_control(handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return moved != 0;
}

/// Two processes that both create the database get in each other's way here; SQLite does not wait by itself then.
std::expected<void, StoreError> SqliteConnection::switchToLog() {
    auto statement = prepare("PRAGMA journal_mode=WAL");
    if (!statement) return std::unexpected(std::move(statement.error()));
    for (int attempt = 0;; ++attempt) {
        const Execution execution(statement->get());
        const int code = sqlite3_step(execution.get());
        if (code == SQLITE_ROW) {
            if (columnText(execution.get(), 0) == "wal") return {};
            return std::unexpected(error("database cannot keep a write-ahead log", SQLITE_CANTOPEN));
        }
        if ((code & 0xFF) != SQLITE_BUSY || waitForOthers(this, attempt) == 0) return std::unexpected(error());
    }
}

std::expected<void, StoreError> SqliteConnection::execute(const char* sql) const {
    if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) return std::unexpected(error());
    return {};
}

std::expected<Statement, StoreError> SqliteConnection::prepare(std::string_view sql) const {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(handle(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK)
        return std::unexpected(error());
    return Statement(statement);
}

std::expected<std::int64_t, StoreError> SqliteConnection::integer(std::string_view sql) const {
    auto statement = prepare(sql);
    if (!statement) return std::unexpected(std::move(statement.error()));
    if (sqlite3_step(statement->get()) != SQLITE_ROW) return std::unexpected(error());
    return sqlite3_column_int64(statement->get(), 0);
}

StoreError SqliteConnection::error() const {
    return error(sqlite3_errmsg(handle()), sqlite3_extended_errcode(handle()));
}

StoreError SqliteConnection::error(std::string_view message, int code) const {
    return describe(path_, message, code);
}

int SqliteConnection::waitForOthers(void* self, int attempt) {
    auto& patience = static_cast<SqliteConnection*>(self)->patience_;
    const auto pause = std::min(patience, std::chrono::milliseconds(1 << std::min(attempt, 4)));
    if (pause <= 0ms) return 0;
    std::this_thread::sleep_for(pause);
    patience -= pause;
    return 1;
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection)
    // IMMEDIATE: a transaction that began to read cannot always go on to write, and SQLite does not wait for it then.
    : connection_(connection), begun_(connection.execute("BEGIN IMMEDIATE")) {}

SqliteTransaction::~SqliteTransaction() {
    // SQLite has already rolled back after some failures, and does so by itself when this fails.
    if (sqlite3_get_autocommit(connection_.handle()) == 0)
        sqlite3_exec(connection_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

std::expected<void, StoreError> SqliteTransaction::commit() {
    return connection_.execute("COMMIT");
}

}  // namespace tarvex::platform
