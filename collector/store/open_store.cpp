#include <string_view>

#include "collector/store/postgresql/postgresql_store.h"
#include "collector/store/sqlite/sqlite_store.h"
#include "collector/store/store.h"

namespace tarvex::collector {

std::unique_ptr<Store> openStore(const std::string& url) {
    constexpr std::string_view sqlite = "sqlite:";
    if (url.starts_with(sqlite)) return openSqliteStore(url.substr(sqlite.size()));
    if (url.starts_with("postgresql://") || url.starts_with("postgres://")) return openPostgresqlStore(url);
    throw StoreUnavailable("the engine is neither sqlite:PATH nor a PostgreSQL URL: " + url);
}

}  // namespace tarvex::collector
