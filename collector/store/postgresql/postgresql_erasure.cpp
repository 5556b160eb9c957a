#include "collector/store/postgresql/postgresql_erasure.h"

#include "collector/store/postgresql/postgresql_rows.h"

namespace tarvex::collector {
namespace {

void remove(PostgresqlConnection& connection, const char* what, std::int64_t participant, Tables& touched) {
    const PostgresqlResult tables = connection.execute(statement(what), {participant});
    for (int table = 0; table < tables.size(); ++table)
        touched.insert(tables[table].text(0));
}

}  // namespace

bool eraseParticipant(PostgresqlConnection& connection, const std::string& participant, Tables& touched) {
    const Digest digest = digestOf(participant);
    lockParticipant(connection, digest);
    connection.execute(statement("bury"), {bytesOf(participant)});
    const PostgresqlResult found = connection.execute(statement("find"), {digest});
    if (found.size() == 0) return false;
    for (const char* what :
         {"erase light", "erase distances", "erase others", "erase documents", "erase quarantine", "erase participant"})
        remove(connection, what, found[0].integer(0), touched);
    return true;
}

void vacuum(PostgresqlConnection& connection, const Tables& tables) {
    for (const std::string& table : tables)
        connection.tryToRun(connection.execute(statement("vacuum"), {table})[0].text(0));
}

void detachMonthsBefore(PostgresqlConnection& connection, double before) {
    const PostgresqlResult months = connection.execute(statement("months before"), {before});
    for (int month = 0; month < months.size(); ++month) {
        try {
            PostgresqlTransaction transaction(connection);
            connection.run(statement("hurry"));
            connection.run(statement("lock partitions"));
            connection.run(months[month].text(0));
            transaction.commit();
        } catch (const PostgresqlError& error) {
            if (error.state().empty()) throw;
        }
    }
}

std::uint64_t dropDetached(PostgresqlConnection& connection) {
    std::uint64_t count = 0;
    PostgresqlTransaction transaction(connection, "begin long");
    connection.run(statement("lock expiry"));
    const PostgresqlResult tables = connection.execute(statement("expired months"));
    for (int table = 0; table < tables.size(); ++table) {
        count += connection.execute(tables[table].text(0))[0].count(0);
        connection.run(tables[table].text(1));
    }
    transaction.commit();
    return count;
}

std::uint64_t deleteRowsBefore(PostgresqlConnection& connection, double before) {
    std::uint64_t count = 0;
    for (const char* rest : {"expired light", "expired distances", "expired others"})
        count += connection.execute(statement(rest), {before}).changed();
    return count;
}

}  // namespace tarvex::collector
