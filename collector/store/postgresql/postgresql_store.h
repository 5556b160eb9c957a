#pragma once

#include <memory>
#include <string>

#include "collector/store/store.h"

namespace tarvex::collector {

/// Opens a database of a PostgreSQL server (15 or later), and makes the tables where there are none. Throws
/// `StoreUnavailable`. The store connects again by itself when a connection was lost.
///
/// A receipt is given only for what the server has committed without a warning, at its standby too where
/// `synchronous_standby_names` asks for one. While a commit waits for a standby that is down, so does the operation.
std::unique_ptr<Store> openPostgresqlStore(const std::string& url);

}  // namespace tarvex::collector
