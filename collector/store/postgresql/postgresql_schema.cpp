#include "collector/store/postgresql/postgresql_schema.h"

#include <cmath>
#include <string>

namespace tarvex::collector {
namespace {

using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month;

constexpr year_month firstMonth = year(2015) / std::chrono::January;
constexpr year_month endOfMonths = year(2101) / std::chrono::January;
constexpr std::int64_t newestVersion = 1;

std::string dateOf(year_month month) {
    const std::string number = std::to_string(static_cast<unsigned>(month.month()));
    return std::to_string(static_cast<int>(month.year())) + (number.size() < 2 ? "-0" : "-") + number + "-01";
}

}  // namespace

double beginOf(year_month month) {
    return static_cast<double>(std::chrono::seconds(sys_days(month / 1).time_since_epoch()).count());
}

std::optional<year_month> monthOf(double time) {
    if (time < beginOf(firstMonth) || time >= beginOf(endOfMonths)) return std::nullopt;
    const std::chrono::year_month_day day(sys_days(std::chrono::days(static_cast<int>(std::floor(time / 86400)))));
    return day.year() / day.month();
}

void prepareSchema(PostgresqlConnection& connection) {
    if (connection.execute(statement("encoding"))[0].text(0) != "UTF8")
        throw StoreUnavailable("the database has another encoding than UTF8");
    PostgresqlTransaction transaction(connection);
    connection.run(statement("lock schema"));
    if (!connection.execute(statement("has schema"))[0].boolean(0)) connection.run(statement("schema"));
    const PostgresqlResult version = connection.execute(statement("version"));
    if (version.size() != 1 || version[0].integer(0) > newestVersion)
        throw StoreUnavailable("the database was made by a newer version of tarvex-collector");
    transaction.commit();
}

void makeMonths(PostgresqlConnection& connection, const Months& months) {
    std::string dates;
    for (const year_month month : months)
        dates += (dates.empty() ? "{" : ",") + dateOf(month);
    PostgresqlTransaction transaction(connection);
    connection.run(statement("lock partitions"));
    const PostgresqlResult missing = connection.execute(statement("missing months"), {dates + "}"});
    for (int month = 0; month < missing.size(); ++month)
        connection.run(missing[month].text(0));
    transaction.commit();
}

}  // namespace tarvex::collector
