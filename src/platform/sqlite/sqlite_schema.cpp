#include "platform/sqlite/sqlite_schema.h"

#include <utility>

#include "platform/sqlite/deletion_scrub.h"
#include "platform/sqlite/sqlite_transaction.h"

namespace tarvex::platform {
namespace {

std::string_view columnType(AttributeType type) {
    switch (type) {
        case AttributeType::number:
            return "REAL";
        case AttributeType::string:
            return "TEXT";
        case AttributeType::uuid:
        case AttributeType::binary:
            return "BLOB";
    }
    std::unreachable();
}

/// The columns of the entity's table as "name TYPE key;", one after the other.
std::string expectedColumns(const EntityDescription& entity) {
    std::string text = "seq INTEGER 1;";
    for (const AttributeDescription& attribute : entity.attributes)
        text.append(attribute.name).append(" ").append(columnType(attribute.type)).append(" 0;");
    return text;
}

std::expected<std::string, StoreError> storedColumns(SqliteConnection& connection, const std::string& table) {
    auto statement = connection.prepare(
        "SELECT info.name, info.type, info.pk FROM sqlite_schema AS object, pragma_table_info(object.name) AS info"
        " WHERE object.type = 'table' AND object.name = ?1 ORDER BY info.cid");
    if (!statement) return std::unexpected(std::move(statement.error()));
    sqlite3_stmt* row = statement->get();
    sqlite3_bind_text(row, 1, table.c_str(), -1, SQLITE_STATIC);
    std::string text;
    int code = sqlite3_step(row);
    for (; code == SQLITE_ROW; code = sqlite3_step(row)) {
        for (int column = 0; column < 3; ++column)
            text.append(columnText(row, column)).append(column < 2 ? " " : ";");
    }
    if (code != SQLITE_DONE) return std::unexpected(connection.error());
    return text;
}

/// Without its one row, no deletion would ever be scrubbed.
std::expected<bool, StoreError> hasScrubRow(SqliteConnection& connection) {
    const auto stored = storedColumns(connection, "_scrub");
    if (!stored) return std::unexpected(stored.error());
    const auto rows = *stored == DeletionScrub::columns ? connection.integer("SELECT count(*) FROM _scrub") : 0;
    if (!rows) return std::unexpected(rows.error());
    if (*rows != 1)
        return std::unexpected(connection.error("table _scrub is not as the library keeps it", SQLITE_SCHEMA));
    return true;
}

}  // namespace

std::string SqliteSchema::quoted(std::string_view name) {
    return std::string("\"").append(name).append("\"");
}

std::string SqliteSchema::columns(const EntityDescription& entity) {
    std::string list;
    for (const AttributeDescription& attribute : entity.attributes)
        list.append(list.empty() ? "" : ", ").append(quoted(attribute.name));
    return list;
}

std::expected<bool, StoreError> SqliteSchema::isPresentIn(SqliteConnection& connection) const {
    const auto objects = connection.integer("SELECT count(*) FROM sqlite_schema");
    if (!objects) return std::unexpected(objects.error());
    if (*objects == 0) return false;
    for (const EntityDescription& entity : model_.entities) {
        const auto stored = storedColumns(connection, entity.name);
        if (!stored) return std::unexpected(stored.error());
        if (*stored != expectedColumns(entity))
            return std::unexpected(
                connection.error("table " + entity.name + " does not fit the object model", SQLITE_SCHEMA));
    }
    return hasScrubRow(connection);
}

std::expected<void, StoreError> SqliteSchema::createIn(SqliteConnection& connection) const {
    SqliteTransaction transaction(connection);
    if (!transaction.begun()) return transaction.begun();
    const auto present = isPresentIn(connection);
    if (!present) return std::unexpected(present.error());
    if (*present) return {};
    if (auto created = connection.execute(creation().c_str()); !created) return created;
    return transaction.commit();
}

std::string SqliteSchema::creation() const {
    // "TRVX": what file(1) and a rescuer see.
    std::string sql = "PRAGMA application_id=0x54525658;";
    sql.append(DeletionScrub::creation).append(";");
    for (const EntityDescription& entity : model_.entities) {
        sql.append("CREATE TABLE ").append(quoted(entity.name)).append("(seq INTEGER PRIMARY KEY");
        for (const AttributeDescription& attribute : entity.attributes)
            sql.append(", ").append(quoted(attribute.name)).append(" ").append(columnType(attribute.type));
        sql.append(");");
    }
    return sql;
}

}  // namespace tarvex::platform
