#include "store/verification.h"

#include <algorithm>
#include <string_view>

#include "counted.h"
#include "platform/sqlite/sqlite_schema.h"
#include "storage/readable_record.h"
#include "store/stored_files.h"
#include "tarvex/platform/json.h"

namespace tarvex::tool {
namespace {

/// What SQLite says of a file that is not whole; empty for one that is.
std::string damageOf(const platform::SqliteConnection& database) {
    const auto check = database.prepare("PRAGMA integrity_check(1)");
    if (!check) return check.error().description;
    if (sqlite3_step(check->get()) != SQLITE_ROW) return database.error().description;
    const std::string text(platform::columnText(check->get(), 0));
    return text == "ok" ? "" : text.substr(text.rfind('\n') + 1);
}

void readRecords(const platform::SqliteConnection& store, const Snapshot& snapshot, Verification& result) {
    const auto select = store.prepare(platform::recordSelection);
    if (!select) {
        result.problems.push_back(snapshot.sentence(select.error()));
        return;
    }
    platform::ValueMapAppender values;
    platform::ByteBuffer scratch;
    int code = sqlite3_step(select->get());
    for (; code == SQLITE_ROW; code = sqlite3_step(select->get())) {
        const auto record = platform::recordIn(select->get());
        ++result.records;
        scratch.truncate(0);
        if (!appendReadable(record, false, values, scratch)) ++result.unreadable;
        if (!record.timestamp) continue;
        result.first = std::min(result.first.value_or(*record.timestamp), *record.timestamp);
        result.last = std::max(result.last.value_or(*record.timestamp), *record.timestamp);
    }
    if (code != SQLITE_DONE)
        result.problems.push_back("After " + counted(result.records, "record") +
                                  " the store cannot be read: " + snapshot.sentence(store.error()));
    if (result.unreadable > 0)
        result.problems.push_back(counted(result.unreadable, "record") + " cannot be read; uploads leave " +
                                  (result.unreadable == 1 ? "it" : "them") + " out.");
}

void checkDefaults(const Snapshot& snapshot, Verification& result) {
    std::error_code failure;
    if (!std::filesystem::exists(snapshot.directory() / defaultsName, failure)) return;
    const auto defaults = snapshot.open(defaultsName);
    const std::string damage = defaults ? damageOf(**defaults) : defaults.error();
    if (!damage.empty()) result.problems.push_back(std::string(defaultsName) + " is damaged: " + damage + ".");
}

}  // namespace

std::expected<Verification, std::string> verify(const Snapshot& snapshot) {
    Verification result;
    const auto store = snapshot.openStore();
    if (!store) return std::unexpected(store.error());
    const auto isPresent = platform::schemaIsPresentIn(**store);
    if (const std::string damage = damageOf(**store); !damage.empty())
        result.problems.push_back(snapshot.store().string() + " is damaged: " + damage + ".");
    if (isPresent && *isPresent) readRecords(**store, snapshot, result);
    checkDefaults(snapshot, result);
    return result;
}

}  // namespace tarvex::tool
