#include "platform/linux/store/sqlite_managed_object_context.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "platform/linux/store/sqlite_attribute.h"
#include "platform/linux/store/sqlite_schema.h"
#include "platform/linux/store/sqlite_transaction.h"

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
    std::unique_ptr<SqliteConnection> connection, const ManagedObjectModel& model) {
    auto scrub = DeletionScrub::prepare(*connection);
    if (!scrub) return std::unexpected(std::move(scrub.error()));
    std::unique_ptr<SqliteManagedObjectContext> context(
        new SqliteManagedObjectContext(std::move(connection), std::move(*scrub)));
    for (const EntityDescription& entity : model.entities) {
        if (auto prepared = context->prepare(entity); !prepared) return std::unexpected(std::move(prepared.error()));
    }
    context->connection_->tidyUpWhenClosed();
    context->retryScrub();
    return context;
}

SqliteManagedObjectContext::SqliteManagedObjectContext(std::unique_ptr<SqliteConnection> connection,
                                                       DeletionScrub scrub)
    : connection_(std::move(connection)), scrub_(std::move(scrub)) {}

std::expected<void, StoreError> SqliteManagedObjectContext::prepare(const EntityDescription& entity) {
    const std::string name = SqliteSchema::quoted(entity.name);
    std::string parameters = "?";
    for (std::size_t i = 1; i < entity.attributes.size(); ++i)
        parameters.append(", ?");
    auto insert = connection_->prepare("INSERT INTO " + name + "(" + SqliteSchema::columns(entity) + ") VALUES(" +
                                       parameters + ")");
    if (!insert) return std::unexpected(std::move(insert.error()));
    // Records leave only all at once, so their numbers have no gaps. Each subselect is answered from an edge of the
    // tree; both in one would read it all.
    auto count = connection_->prepare("SELECT (SELECT max(seq) FROM " + name + ") - (SELECT min(seq) FROM " + name +
                                      ") + 1, " + DeletionScrub::owed);
    if (!count) return std::unexpected(std::move(count.error()));
    tables_.push_back(std::make_unique<Table>(entity, std::move(*insert), std::move(*count)));
    // Looking at the tree's edges finds a damaged file here rather than under the first sample.
    if (auto counted = countStored(*tables_.back()); !counted) return std::unexpected(std::move(counted.error()));
    return {};
}

std::shared_ptr<ManagedObject> SqliteManagedObjectContext::insertNewObject(std::string_view entityName) {
    const auto table =
        std::ranges::find(tables_, entityName, [](const auto& t) { return std::string_view(t->entity.name); });
    if (table == tables_.end()) return nullptr;
    auto object = std::make_shared<ManagedObject>();
    std::ranges::transform((*table)->entity.attributes, std::back_inserter(object->values), initialValue);
    pending_.push_back({table->get(), object});
    return object;
}

std::expected<void, StoreError> SqliteManagedObjectContext::save() {
    connection_->waitAtMost(operationPatience);
    if (auto written = writePending(); !written) return written;
    pending_.clear();
    retryScrub();
    return {};
}

std::expected<void, StoreError> SqliteManagedObjectContext::writePending() {
    if (pending_.empty()) return {};
    // A statement by itself is a transaction already: one sample costs no more than its INSERT.
    if (pending_.size() == 1) return write(pending_.front());
    SqliteTransaction transaction(*connection_);
    if (!transaction.begun()) return transaction.begun();
    for (const Pending& record : pending_) {
        if (auto written = write(record); !written) return written;
    }
    return transaction.commit();
}

std::expected<void, StoreError> SqliteManagedObjectContext::write(const Pending& record) {
    const Execution insert(record.table->insert.get());
    const auto& values = record.object->values;
    for (int i = 0; i < sqlite3_bind_parameter_count(insert.get()) && std::cmp_less(i, values.size()); ++i) {
        if (bindAttribute(insert.get(), i + 1, values[static_cast<std::size_t>(i)]) != SQLITE_OK)
            return std::unexpected(connection_->error());
    }
    if (sqlite3_step(insert.get()) != SQLITE_DONE) return std::unexpected(connection_->error());
    return {};
}

std::expected<void, StoreError> SqliteManagedObjectContext::fetch(const FetchRequest& request,
                                                                  const RowVisitor& visit) {
    const auto from = table(request);
    if (!from) return std::unexpected(from.error());
    connection_->waitAtMost(operationPatience);
    const std::vector<std::size_t> wanted = wantedAttributes(request, (*from)->entity);
    const auto goesOn = visitStored(**from, wanted, visit);
    if (!goesOn) return std::unexpected(goesOn.error());
    if (*goesOn) visitPending(**from, wanted, visit);
    retryScrub();
    return {};
}

std::expected<bool, StoreError> SqliteManagedObjectContext::visitStored(const Table& table,
                                                                        const std::vector<std::size_t>& wanted,
                                                                        const RowVisitor& visit) {
    const auto& attributes = table.entity.attributes;
    std::string columns;
    for (const std::size_t attribute : wanted)
        columns.append(columns.empty() ? "" : ", ").append(SqliteSchema::quoted(attributes[attribute].name));
    auto select = connection_->prepare("SELECT " + columns + " FROM " + SqliteSchema::quoted(table.entity.name) +
                                       " ORDER BY seq");
    if (!select) return std::unexpected(std::move(select.error()));
    std::vector<AttributeView> values(attributes.size());
    int code = sqlite3_step(select->get());
    for (; code == SQLITE_ROW; code = sqlite3_step(select->get())) {
        for (int column = 0; const std::size_t attribute : wanted)
            values[attribute] = readAttribute(select->get(), column++, attributes[attribute].type);
        if (!visit(values)) return false;
    }
    if (code != SQLITE_DONE) return std::unexpected(connection_->error());
    return true;
}

void SqliteManagedObjectContext::visitPending(const Table& table, const std::vector<std::size_t>& wanted,
                                              const RowVisitor& visit) const {
    std::vector<AttributeView> values(table.entity.attributes.size());
    for (const Pending& record : pending_) {
        if (record.table != &table) continue;
        for (const std::size_t attribute : wanted)
            values[attribute] = view(record.object->values[attribute]);
        if (!visit(values)) return;
    }
}

std::size_t SqliteManagedObjectContext::fetchSizeBound(const FetchRequest& request) {
    std::size_t bound = 0;
    for (const Pending& record : pending_)
        bound += byteCount(*record.object);
    const auto from = table(request);
    if (!from) return bound;
    connection_->waitAtMost(operationPatience);
    const auto pages = connection_->integer("SELECT page_count * page_size FROM pragma_page_count, pragma_page_size");
    const auto stored = countStored(**from);
    if (pages && stored)
        bound += static_cast<std::size_t>(*pages) + static_cast<std::size_t>(stored->records) * recordOverhead;
    return bound;
}

std::expected<std::int64_t, StoreError> SqliteManagedObjectContext::count(const FetchRequest& request) {
    const auto from = table(request);
    if (!from) return std::unexpected(from.error());
    connection_->waitAtMost(operationPatience);
    const auto stored = countStored(**from);
    if (!stored) return std::unexpected(stored.error());
    if (stored->scrubOwed) retryScrub();
    return stored->records + std::ranges::count(pending_, *from, &Pending::table);
}

std::expected<SqliteManagedObjectContext::Stored, StoreError> SqliteManagedObjectContext::countStored(
    const Table& table) {
    const Execution row(table.count.get());
    if (sqlite3_step(row.get()) != SQLITE_ROW) return std::unexpected(connection_->error());
    return Stored{sqlite3_column_int64(row.get(), 0), sqlite3_column_int(row.get(), 1) != 0};
}

std::expected<void, StoreError> SqliteManagedObjectContext::batchDelete(const FetchRequest& request) {
    const auto from = table(request);
    if (!from) return std::unexpected(from.error());
    connection_->waitAtMost(operationPatience);
    return deleteStored(**from);
}

std::expected<void, StoreError> SqliteManagedObjectContext::deleteStored(const Table& table) {
    SqliteTransaction transaction(*connection_);
    if (!transaction.begun()) return transaction.begun();
    // Without a condition, SQLite drops whole pages instead of one record after the other.
    const std::string sql = "DELETE FROM " + SqliteSchema::quoted(table.entity.name);
    if (auto deleted = connection_->execute(sql.c_str()); !deleted) return deleted;
    if (sqlite3_changes64(connection_->handle()) == 0) return {};
    if (auto noted = scrub_.noteDeletion(); !noted) return noted;
    return transaction.commit();
}

void SqliteManagedObjectContext::scrub() {
    connection_->waitAtMost(scrubPatience);
    scrub_.run();
}

void SqliteManagedObjectContext::retryScrub() {
    connection_->waitAtMost(0ms);
    scrub_.run();
}

std::expected<const SqliteManagedObjectContext::Table*, StoreError> SqliteManagedObjectContext::table(
    const FetchRequest& request) const {
    const auto found = std::ranges::find(tables_, request.entityName, [](const auto& t) { return t->entity.name; });
    if (found == tables_.end())
        return std::unexpected(connection_->error("no entity " + request.entityName, SQLITE_ERROR));
    return found->get();
}

}  // namespace tarvex::platform
