#include "platform/sqlite/sqlite_managed_object_context.h"

#include <algorithm>
#include <filesystem>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/sqlite/cut_to_nothing.h"
#include "platform/sqlite/sqlite_attribute.h"
#include "platform/sqlite/sqlite_schema.h"
#include "platform/sqlite/sqlite_transaction.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;

constexpr auto operationPatience = 1000ms;
constexpr auto scrubPatience = 50ms;

/// What a record takes besides its attributes' bytes, in a document as in the store.
constexpr std::size_t recordOverhead = 48;

AttributeValue initialValue(const AttributeDescription& attribute) {
    return attribute.type == AttributeType::number ? AttributeValue(0.0) : AttributeValue();
}

AttributeView view(const AttributeValue& value) {
    return std::visit(
        []<typename Value>(const Value& v) -> AttributeView {
            if constexpr (std::is_same_v<Value, std::vector<std::byte>>)
                return std::span<const std::byte>(v);
            else
                return v;
        },
        value);
}

std::vector<std::size_t> wantedAttributes(const FetchRequest& request, const EntityDescription& entity) {
    if (!request.propertiesToFetch.empty()) return request.propertiesToFetch;
    std::vector<std::size_t> all;
    all.reserve(entity.attributes.size());
    for (std::size_t place = 0; place < entity.attributes.size(); ++place)
        all.push_back(place);
    return all;
}

std::size_t byteCount(const ManagedObject& object) {
    std::size_t sum = recordOverhead;
    for (const AttributeValue& value : object.values) {
        sum += sizeof(Uuid);
        if (const auto* text = std::get_if<std::string>(&value))
            sum += text->size();
        else if (const auto* bytes = std::get_if<std::vector<std::byte>>(&value))
            sum += bytes->size();
    }
    return sum;
}

}  // namespace

std::expected<std::unique_ptr<SqliteManagedObjectContext>, StoreError> SqliteManagedObjectContext::open(
    OpenDatabase openDatabase, ManagedObjectModel model) {
    std::unique_ptr<SqliteManagedObjectContext> context(
        new SqliteManagedObjectContext(std::move(openDatabase), std::move(model)));
    if (auto opened = context->openAgain(); !opened) return std::unexpected(std::move(opened.error()));
    return context;
}

SqliteManagedObjectContext::SqliteManagedObjectContext(OpenDatabase openDatabase, ManagedObjectModel model)
    : openDatabase_(std::move(openDatabase)), model_(std::move(model)), patience_(operationPatience) {}

std::expected<void, StoreError> SqliteManagedObjectContext::openAgain() {
    auto connection = openDatabase_();
    if (!connection) return std::unexpected(std::move(connection.error()));
    auto scrub = DeletionScrub::prepare(**connection);
    if (!scrub) return std::unexpected(std::move(scrub.error()));
    auto opened = std::make_unique<Database>(std::move(*connection), std::move(*scrub));
    for (std::size_t entity = 0; entity < model_.entities.size(); ++entity) {
        auto table = prepare(*opened->connection, model_.entities[entity]);
        if (!table) return std::unexpected(std::move(table.error()));
        opened->tables.push_back(std::move(*table));
        // Looking at the tree's edges finds a damaged file here rather than under the first sample.
        if (auto counted = countStored({*opened, entity}); !counted) return std::unexpected(std::move(counted.error()));
    }
    opened->connection->tidyUpWhenClosed();
    retryScrub(*opened);
    database_ = std::move(opened);
    return {};
}

std::expected<SqliteManagedObjectContext::Table, StoreError> SqliteManagedObjectContext::prepare(
    const SqliteConnection& connection, const EntityDescription& entity) {
    const std::string name = SqliteSchema::quoted(entity.name);
    std::string parameters = "?";
    for (std::size_t i = 1; i < entity.attributes.size(); ++i)
        parameters.append(", ?");
    auto insert = connection.prepare("INSERT INTO " + name + "(" + SqliteSchema::columns(entity) + ") VALUES(" +
                                     parameters + ")");
    if (!insert) return std::unexpected(std::move(insert.error()));
    // Records leave only all at once, so their numbers have no gaps. Each subselect is answered from an edge of the
    // tree; both in one would read it all.
    auto count = connection.prepare("SELECT (SELECT max(seq) FROM " + name + ") - (SELECT min(seq) FROM " + name +
                                    ") + 1, " + DeletionScrub::owed);
    if (!count) return std::unexpected(std::move(count.error()));
    return Table{.insert = std::move(*insert), .count = std::move(*count)};
}

/// The database that is open, and ready to wait for others; opened where none is.
std::expected<SqliteManagedObjectContext::Database*, StoreError> SqliteManagedObjectContext::database() {
    if (!database_) {
        if (auto opened = openAgain(); !opened) return std::unexpected(std::move(opened.error()));
    }
    database_->connection->waitAtMost(patience_);
    return database_.get();
}

std::expected<SqliteManagedObjectContext::Subject, StoreError> SqliteManagedObjectContext::subject(
    const FetchRequest& request) {
    const auto entity = entityNamed(request.entityName);
    if (!entity) return std::unexpected(StoreError{.description = "no entity " + request.entityName, .userInfo = "[]"});
    auto opened = database();
    if (!opened) return std::unexpected(std::move(opened.error()));
    return Subject{**opened, *entity};
}

std::optional<std::size_t> SqliteManagedObjectContext::entityNamed(std::string_view name) const {
    const auto found =
        std::ranges::find(model_.entities, name, [](const auto& entity) { return std::string_view(entity.name); });
    if (found == model_.entities.end()) return std::nullopt;
    return static_cast<std::size_t>(found - model_.entities.begin());
}

/// Before records are read or deleted: those of a file that somebody has removed are nobody's. A count, which is made
/// all the time, notices with the next sample.
void SqliteManagedObjectContext::leaveIfMoved() {
    if (database_ && database_->connection->hasMoved()) leave();
}

/// Closes a database whose files are no longer the store's, and touches nothing that lies in their place.
void SqliteManagedObjectContext::leave() {
    database_->connection->leaveFilesWhenClosed();
    database_.reset();
}

std::shared_ptr<ManagedObject> SqliteManagedObjectContext::insertNewObject(std::string_view entityName) {
    const auto entity = entityNamed(entityName);
    if (!entity) return nullptr;
    auto object = std::make_shared<ManagedObject>();
    std::ranges::transform(model_.entities[*entity].attributes, std::back_inserter(object->values), initialValue);
    pending_.push_back({*entity, object});
    return object;
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

std::expected<void, StoreError> SqliteManagedObjectContext::writePending(Database& database) {
    if (pending_.empty()) return {};
    // A statement by itself is a transaction already: one sample costs no more than its INSERT.
    if (pending_.size() == 1) return write(pending_.front(), database);
    SqliteTransaction transaction(*database.connection);
    if (!transaction.begun()) return transaction.begun();
    for (const Pending& record : pending_) {
        if (auto written = write(record, database); !written) return written;
    }
    return transaction.commit();
}

std::expected<void, StoreError> SqliteManagedObjectContext::write(const Pending& record, Database& database) {
    const Execution insert(database.tables[record.entity].insert.get());
    const auto& values = record.object->values;
    for (int i = 0; i < sqlite3_bind_parameter_count(insert.get()) && std::cmp_less(i, values.size()); ++i) {
        if (bindAttribute(insert.get(), i + 1, values[static_cast<std::size_t>(i)]) != SQLITE_OK)
            return std::unexpected(database.connection->error());
    }
    if (sqlite3_step(insert.get()) != SQLITE_DONE) return std::unexpected(database.connection->error());
    return {};
}

std::expected<void, StoreError> SqliteManagedObjectContext::fetch(const FetchRequest& request,
                                                                  const RowVisitor& visit) {
    leaveIfMoved();
    const auto from = subject(request);
    if (!from) return std::unexpected(from.error());
    const std::vector<std::size_t> wanted = wantedAttributes(request, model_.entities[from->entity]);
    const auto goesOn = visitStored(*from, wanted, visit);
    if (!goesOn) return std::unexpected(goesOn.error());
    if (*goesOn) visitPending(from->entity, wanted, visit);
    retryScrub(from->database);
    return {};
}

std::expected<bool, StoreError> SqliteManagedObjectContext::visitStored(const Subject& subject,
                                                                        const std::vector<std::size_t>& wanted,
                                                                        const RowVisitor& visit) const {
    const EntityDescription& entity = model_.entities[subject.entity];
    std::string columns;
    for (const std::size_t attribute : wanted)
        columns.append(columns.empty() ? "" : ", ").append(SqliteSchema::quoted(entity.attributes[attribute].name));
    auto select = subject.database.connection->prepare("SELECT " + columns + " FROM " +
                                                       SqliteSchema::quoted(entity.name) + " ORDER BY seq");
    if (!select) return std::unexpected(std::move(select.error()));
    std::vector<AttributeView> values(entity.attributes.size());
    int code = sqlite3_step(select->get());
    for (; code == SQLITE_ROW; code = sqlite3_step(select->get())) {
        for (int column = 0; const std::size_t attribute : wanted)
            values[attribute] = readAttribute(select->get(), column++, entity.attributes[attribute].type);
        if (!visit(values)) return false;
    }
    if (code != SQLITE_DONE) return std::unexpected(subject.database.connection->error());
    return true;
}

void SqliteManagedObjectContext::visitPending(std::size_t entity, const std::vector<std::size_t>& wanted,
                                              const RowVisitor& visit) const {
    std::vector<AttributeView> values(model_.entities[entity].attributes.size());
    for (const Pending& record : pending_) {
        if (record.entity != entity) continue;
        for (const std::size_t attribute : wanted)
            values[attribute] = view(record.object->values[attribute]);
        if (!visit(values)) return;
    }
}

std::size_t SqliteManagedObjectContext::fetchSizeBound(const FetchRequest& request) {
    std::size_t bound = 0;
    for (const Pending& record : pending_)
        bound += byteCount(*record.object);
    leaveIfMoved();
    const auto from = subject(request);
    if (!from) return bound;
    const auto pages =
        from->database.connection->integer("SELECT page_count * page_size FROM pragma_page_count, pragma_page_size");
    const auto stored = countStored(*from);
    if (pages && stored)
        bound += static_cast<std::size_t>(*pages) + static_cast<std::size_t>(stored->records) * recordOverhead;
    return bound;
}

std::expected<std::int64_t, StoreError> SqliteManagedObjectContext::count(const FetchRequest& request) {
    const auto from = subject(request);
    if (!from) return std::unexpected(from.error());
    const auto stored = countStored(*from);
    if (!stored) return std::unexpected(stored.error());
    if (stored->scrubOwed) retryScrub(from->database);
    return stored->records + std::ranges::count(pending_, from->entity, &Pending::entity);
}

std::expected<SqliteManagedObjectContext::Stored, StoreError> SqliteManagedObjectContext::countStored(
    const Subject& subject) {
    const Execution row(subject.database.tables[subject.entity].count.get());
    if (sqlite3_step(row.get()) != SQLITE_ROW) return std::unexpected(subject.database.connection->error());
    return Stored{sqlite3_column_int64(row.get(), 0), sqlite3_column_int(row.get(), 1) != 0};
}

std::expected<void, StoreError> SqliteManagedObjectContext::batchDelete(const FetchRequest& request) {
    leaveIfMoved();
    const auto from = subject(request);
    if (!from) return std::unexpected(from.error());
    auto deleted = deleteStored(*from);
    if (deleted || !mayCutFiles(deleted.error())) return deleted;
    return cutFiles(Spare::nothing);
}

std::expected<void, StoreError> SqliteManagedObjectContext::deleteStored(const Subject& subject) const {
    SqliteTransaction transaction(*subject.database.connection);
    if (!transaction.begun()) return transaction.begun();
    // Without a condition, SQLite drops whole pages instead of one record after the other.
    const std::string sql = "DELETE FROM " + SqliteSchema::quoted(model_.entities[subject.entity].name);
    if (auto deleted = subject.database.connection->execute(sql.c_str()); !deleted) return deleted;
    if (sqlite3_changes64(subject.database.connection->handle()) == 0) return {};
    if (auto noted = subject.database.scrub.noteDeletion(); !noted) return noted;
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

/// Whether the disk is what an operation failed for, and the files hold nothing beside the one entity's records.
bool SqliteManagedObjectContext::mayCutFiles(const StoreError& error) const {
    return error.cause == StoreError::Cause::noRoom && model_.entities.size() == 1;
}

/// The way without a transaction, for which there is no room. The next operation makes the store again.
std::expected<void, StoreError> SqliteManagedObjectContext::cutFiles(Spare spare) {
    const std::filesystem::path path = database_->connection->path();
    const char* vfs = database_->connection->vfs();
    leave();
    return cutToNothing(path, vfs, spare == Spare::records ? SqliteSchema::quoted(model_.entities.front().name) : "");
}

}  // namespace tarvex::platform
