#include "platform/sqlite/sqlite_managed_object_context.h"

#include <string>
#include <tuple>
#include <utility>

#include "platform/sqlite/sqlite_schema.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;

constexpr auto operationPatience = 1000ms;
// Another process may be emptying the log of its last connection.
constexpr auto openingPatience = 5000ms;
constexpr auto scrubPatience = 50ms;

constexpr std::string_view storedEntity = "DataEntry";

/// Bytes that a record takes besides its attributes' bytes, in a document as in the store.
constexpr std::size_t recordOverhead = 48;

ManagedObjectView view(const ManagedObject& object) {
    return {.timestamp = object.timestamp, .type = object.type, .data = object.data};
}

std::size_t byteCount(const ManagedObject& object) {
    return recordOverhead + sizeof(ManagedObject) + (object.type ? object.type->size() : 0) +
           (object.data ? object.data->size() : 0);
}

/// True on a full disk, where a transaction finds no room.
bool mayCutFiles(const StoreError& error) {
    return error.cause == StoreError::Cause::noRoom;
}

}  // namespace

SqliteManagedObjectContext::SqliteManagedObjectContext(std::function<std::filesystem::path()> file, const char* vfs)
    : file_(std::move(file)), vfs_(vfs), patience_(operationPatience), openingPatience_(openingPatience) {}

void SqliteManagedObjectContext::waitAtMost(std::chrono::milliseconds wait) {
    patience_ = wait;
    openingPatience_ = wait;
}

std::expected<void, StoreError> SqliteManagedObjectContext::open() {
    auto connection = connect();
    if (!connection) return std::unexpected(std::move(connection.error()));
    auto scrub = DeletionScrub::prepare(**connection);
    if (!scrub) return std::unexpected(std::move(scrub.error()));
    auto insert = (*connection)->prepare(recordInsertion);
    if (!insert) return std::unexpected(std::move(insert.error()));
    auto count = (*connection)->prepare(std::string("SELECT ") + recordCount + ", " + DeletionScrub::owed);
    if (!count) return std::unexpected(std::move(count.error()));
    auto opened =
        std::make_unique<Database>(std::move(*connection), std::move(*scrub), std::move(*insert), std::move(*count));
    // Looking at the tree's edges finds a damaged file here rather than under the first sample.
    if (auto counted = countStored(*opened); !counted) return std::unexpected(std::move(counted.error()));
    opened->connection->tidyUpWhenClosed();
    retryScrub(*opened);
    database_ = std::move(opened);
    return {};
}

std::expected<std::unique_ptr<SqliteConnection>, StoreError> SqliteManagedObjectContext::connect() const {
    auto connection = SqliteConnection::open(file_(), vfs_, openingPatience_);
    if (!connection) return std::unexpected(std::move(connection.error()));
    if ((*connection)->readOnly())
        return std::unexpected((*connection)->error("file cannot be written", SQLITE_READONLY));
    const auto present = schemaIsPresentIn(**connection);
    if (!present) return std::unexpected(present.error());
    if (auto configured = (*connection)->configure(); !configured) return std::unexpected(configured.error());
    if (!*present) {
        if (auto created = createSchemaIn(**connection); !created) return std::unexpected(created.error());
    }
    return connection;
}

/// The database that is open, and ready to wait for others; opened where none is.
std::expected<SqliteManagedObjectContext::Database*, StoreError> SqliteManagedObjectContext::database() {
    if (!database_) {
        if (auto opened = open(); !opened) return std::unexpected(std::move(opened.error()));
    }
    database_->connection->waitAtMost(patience_);
    return database_.get();
}

std::expected<SqliteManagedObjectContext::Database*, StoreError> SqliteManagedObjectContext::databaseFor(
    const FetchRequest& request) {
    if (request.entityName != storedEntity)
        return std::unexpected(StoreError{.description = "no entity " + request.entityName, .userInfo = "[]"});
    return database();
}

/// Before records are read or deleted: those of a removed file are gone. A count, which hosts make all the time,
/// notices with the next sample.
void SqliteManagedObjectContext::leaveIfMoved() {
    if (database_ && database_->connection->hasMoved()) leave();
}

/// Closes a database whose files are no longer the store's, and touches nothing that lies in their place.
void SqliteManagedObjectContext::leave() {
    database_->connection->leaveFilesWhenClosed();
    database_.reset();
}

std::shared_ptr<ManagedObject> SqliteManagedObjectContext::insertNewObject(std::string_view entityName) {
    if (entityName != storedEntity) return nullptr;
    return pending_.emplace_back(std::make_shared<ManagedObject>());
}

std::expected<void, StoreError> SqliteManagedObjectContext::save() {
    const auto opened = database();
    if (!opened) return std::unexpected(opened.error());
    if (auto written = writePending(**opened); !written) return written;
    if (!pending_.empty() && database_->connection->hasMoved()) {
        auto error =
            database_->connection->error("file was removed or replaced while it was open", SQLITE_READONLY_DBMOVED);
        error.cause = StoreError::Cause::moved;
        leave();
        return std::unexpected(std::move(error));
    }
    pending_.clear();
    retryScrub(*database_);
    return {};
}

std::expected<void, StoreError> SqliteManagedObjectContext::writePending(Database& database) const {
    if (pending_.empty()) return {};
    // A statement by itself is a transaction already: one sample costs no more than its INSERT.
    if (pending_.size() == 1) return write(*pending_.front(), database);
    SqliteTransaction transaction(*database.connection);
    if (!transaction.begun()) return transaction.begun();
    for (const auto& object : pending_) {
        if (auto written = write(*object, database); !written) return written;
    }
    return transaction.commit();
}

std::expected<void, StoreError> SqliteManagedObjectContext::write(const ManagedObject& object, Database& database) {
    const Execution insert(database.insert.get());
    if (bindRecord(insert.get(), object) != SQLITE_OK || sqlite3_step(insert.get()) != SQLITE_DONE)
        return std::unexpected(database.connection->error());
    return {};
}

std::expected<void, StoreError> SqliteManagedObjectContext::fetch(const FetchRequest& request,
                                                                  const RowVisitor& visit) {
    leaveIfMoved();
    const auto opened = databaseFor(request);
    if (!opened) return std::unexpected(opened.error());
    const auto goesOn = visitStored(**opened, visit);
    if (!goesOn) return std::unexpected(goesOn.error());
    for (auto object = pending_.begin(); *goesOn && object != pending_.end(); ++object)
        if (!visit(view(**object))) break;
    retryScrub(**opened);
    return {};
}

/// False when the visitor has had enough.
std::expected<bool, StoreError> SqliteManagedObjectContext::visitStored(Database& database, const RowVisitor& visit) {
    auto select = database.connection->prepare(recordSelection);
    if (!select) return std::unexpected(std::move(select.error()));
    int code = sqlite3_step(select->get());
    for (; code == SQLITE_ROW; code = sqlite3_step(select->get())) {
        if (!visit(recordIn(select->get()))) return false;
    }
    if (code != SQLITE_DONE) return std::unexpected(database.connection->error());
    return true;
}

std::size_t SqliteManagedObjectContext::fetchSizeBound(const FetchRequest& request) {
    std::size_t bound = 0;
    for (const auto& object : pending_)
        bound += byteCount(*object);
    leaveIfMoved();
    const auto opened = databaseFor(request);
    if (!opened) return bound;
    const auto pages =
        (*opened)->connection->integer("SELECT page_count * page_size FROM pragma_page_count, pragma_page_size");
    const auto stored = countStored(**opened);
    if (pages && stored)
        bound += static_cast<std::size_t>(*pages) + static_cast<std::size_t>(stored->records) * recordOverhead;
    return bound;
}

std::expected<std::int64_t, StoreError> SqliteManagedObjectContext::count(const FetchRequest& request) {
    const auto opened = databaseFor(request);
    if (!opened) return std::unexpected(opened.error());
    const auto stored = countStored(**opened);
    if (!stored) return std::unexpected(stored.error());
    if (stored->scrubOwed) retryScrub(**opened);
    return stored->records + static_cast<std::int64_t>(pending_.size());
}

std::expected<SqliteManagedObjectContext::Stored, StoreError> SqliteManagedObjectContext::countStored(
    Database& database) {
    const Execution row(database.count.get());
    if (sqlite3_step(row.get()) != SQLITE_ROW) return std::unexpected(database.connection->error());
    return Stored{sqlite3_column_int64(row.get(), 0), sqlite3_column_int(row.get(), 1) != 0};
}

std::expected<void, StoreError> SqliteManagedObjectContext::batchDelete(const FetchRequest& request) {
    leaveIfMoved();
    const auto opened = databaseFor(request);
    if (!opened) return std::unexpected(opened.error());
    auto deleted = deleteStored(**opened);
    if (deleted || !mayCutFiles(deleted.error())) return deleted;
    return cutFiles(Spare::nothing);
}

std::expected<void, StoreError> SqliteManagedObjectContext::deleteStored(Database& database) {
    SqliteTransaction transaction(*database.connection);
    if (!transaction.begun()) return transaction.begun();
    if (auto deleted = database.connection->execute(recordDeletion); !deleted) return deleted;
    if (sqlite3_changes64(database.connection->handle()) == 0) return {};
    if (auto noted = database.scrub.noteDeletion(); !noted) return noted;
    return transaction.commit();
}

void SqliteManagedObjectContext::scrub() {
    const auto opened = database();
    if (!opened) return;
    (*opened)->connection->waitAtMost(scrubPatience);
    const auto scrubbed = (*opened)->scrub.run();
    if (!scrubbed && mayCutFiles(scrubbed.error())) std::ignore = cutFiles(Spare::records);
}

void SqliteManagedObjectContext::retryScrub(Database& database) {
    database.connection->waitAtMost(0ms);
    std::ignore = database.scrub.run();
}

/// The way without a transaction. The next operation makes the store again.
std::expected<void, StoreError> SqliteManagedObjectContext::cutFiles(Spare spare) {
    const std::filesystem::path path = database_->connection->path();
    leave();
    return cutToNothing(path, vfs_, spare);
}

}  // namespace tarvex::platform
