#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "collector/store/postgresql/postgresql_connection.h"

namespace tarvex::collector {

using Tables = std::set<std::string>;

/// Deletes everything of a participant in the transaction that is under way, and drops what comes from it afterwards.
/// False when nothing came from it. `touched`: the tables that still hold its bytes until they are vacuumed.
bool eraseParticipant(PostgresqlConnection& connection, const std::string& participant, Tables& touched);

/// Overwrites what deleted rows have left, as far as the server can do so now.
void vacuum(PostgresqlConnection& connection, const Tables& tables);

/// Moves the months that lie before that time out of the way of those who read and write. A month that somebody reads
/// for long stays: its rows are left to `deleteRowsBefore`.
void detachMonthsBefore(PostgresqlConnection& connection, double before);
/// Drops what has been moved out of the way. Returns the number of its samples.
std::uint64_t dropDetached(PostgresqlConnection& connection);
/// Returns the number of samples that were deleted one by one, in the transaction that is under way.
std::uint64_t deleteRowsBefore(PostgresqlConnection& connection, double before);

}  // namespace tarvex::collector
