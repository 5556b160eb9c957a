#pragma once

#include <chrono>
#include <optional>
#include <set>

#include "collector/store/postgresql/postgresql_connection.h"

namespace tarvex::collector {

using Months = std::set<std::chrono::year_month>;

/// Seconds since 1970 of the beginning of a month.
double beginOf(std::chrono::year_month month);
/// The month of a time that a clock can rightly show; absent for others, whose samples have a place of their own.
std::optional<std::chrono::year_month> monthOf(double time);

/// Makes the tables where there are none; several may do so at once. Throws `StoreUnavailable` when the database cannot
/// be used.
void prepareSchema(PostgresqlConnection& connection);

/// Makes what is missing of the partitions of these months, in a transaction of its own.
void makeMonths(PostgresqlConnection& connection, const Months& months);

}  // namespace tarvex::collector
