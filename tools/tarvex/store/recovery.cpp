#include "store/recovery.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <ranges>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/shared/file_descriptor.h"
#include "platform/shared/own_file.h"
#include "platform/shared/private_files.h"
#include "platform/sqlite/sqlite_schema.h"
#include "store/snapshot.h"
#include "store/stored_files.h"

namespace tarvex::tool {
namespace {

namespace fs = std::filesystem;
using Failure = std::unexpected<std::string>;
using platform::SqliteConnection;
using platform::Statement;
using platform::StoreError;
using Value = std::unique_ptr<sqlite3_value, platform::ReleaseWith<sqlite3_value_free>>;
using Row = std::array<Value, 4>;

constexpr std::array companions{"", "-wal", "-shm", "-journal"};

/// Takes away the new file, unless it was finished.
class NewFile {
public:
    explicit NewFile(fs::path path) : path_(std::move(path)) {}
    ~NewFile() {
        if (!made_ || finished_) return;
        std::error_code failure;
        for (const char* companion : companions)
            fs::remove(path_.native() + companion, failure);
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    std::expected<void, std::string> make() {
        for (const char* companion : companions) {
            std::error_code failure;
            const fs::path name = path_.native() + companion;
            if (fs::symlink_status(name, failure).type() != fs::file_type::not_found)
                return Failure("There is something at " + name.string() + " already: name a new file.");
        }
        const int made = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, platform::privateFile);
        if (made < 0)
            return Failure(path_.string() + " cannot be made: " + std::generic_category().message(errno) + ".");
        const platform::FileDescriptor closing(made);
        made_ = true;
        return {};
    }
    void finish() { finished_ = true; }

private:
    fs::path path_;
    bool made_ = false;
    bool finished_ = false;
};

using Values = std::array<sqlite3_value*, 4>;

/// Of the current row of a selection of `seq` and the four columns of a record.
Values valuesIn(sqlite3_stmt* row) {
    return {sqlite3_column_value(row, 1), sqlite3_column_value(row, 2), sqlite3_column_value(row, 3),
            sqlite3_column_value(row, 4)};
}

/// Copies records from the damaged store into the new one, values as they are, whatever their type.
class Rescue {
public:
    Rescue(const SqliteConnection& from, SqliteConnection& to) : from_(from), to_(to) {}

    /// One sentence when the new store takes no more, or the old one has no such table.
    std::expected<Recovery, std::string> run() {
        auto insertion = to_.prepare(platform::recordInsertion);
        if (!insertion) return Failure(insertion.error().description + ".");
        insertion_ = *std::move(insertion);
        platform::SqliteTransaction transaction(to_);
        if (!transaction.begun()) return Failure(transaction.begun().error().description + ".");
        if (auto read = forwards(); !read) return Failure(read.error());
        if (!result_.isWhole) {
            if (auto read = backwards(); !read) return Failure(read.error());
        }
        if (auto committed = transaction.commit(); !committed) return Failure(committed.error().description + ".");
        return result_;
    }

private:
    std::expected<void, std::string> forwards() {
        const auto select = from_.prepare("SELECT seq, id, timestamp, type, data FROM DataEntry ORDER BY seq");
        if (!select) return Failure(select.error().description + ".");
        int code = sqlite3_step(select->get());
        for (; code == SQLITE_ROW; code = sqlite3_step(select->get())) {
            last_ = sqlite3_column_int64(select->get(), 0);
            if (auto inserted = insert(valuesIn(select->get())); !inserted) return inserted;
        }
        result_.isWhole = code == SQLITE_DONE;
        return {};
    }

    /// From the end back to what was read forwards, or to the damage.
    std::expected<void, std::string> backwards() {
        const auto select =
            from_.prepare("SELECT seq, id, timestamp, type, data FROM DataEntry WHERE seq > ?1 ORDER BY seq DESC");
        if (!select) return Failure(select.error().description + ".");
        sqlite3_bind_int64(select->get(), 1, last_);
        std::vector<Row> rows;
        while (sqlite3_step(select->get()) == SQLITE_ROW) {
            const Values values = valuesIn(select->get());
            Row& row = rows.emplace_back();
            std::ranges::transform(values, row.begin(), [](auto* value) { return Value(sqlite3_value_dup(value)); });
        }
        for (const Row& row : std::views::reverse(rows)) {
            if (auto inserted = insert({row[0].get(), row[1].get(), row[2].get(), row[3].get()}); !inserted)
                return inserted;
        }
        return {};
    }

    std::expected<void, std::string> insert(const Values& values) {
        const platform::Execution execution(insertion_.get());
        for (std::size_t column = 0; column < values.size(); ++column)
            sqlite3_bind_value(execution.get(), static_cast<int>(column) + 1, values.at(column));
        if (sqlite3_step(execution.get()) != SQLITE_DONE) return Failure(to_.error().description + ".");
        ++result_.records;
        return {};
    }

    const SqliteConnection& from_;
    SqliteConnection& to_;
    Statement insertion_;
    std::int64_t last_ = std::numeric_limits<std::int64_t>::min();
    Recovery result_;
};

/// Only what this version knows: a column more would be lost.
std::expected<void, std::string> checkTable(const SqliteConnection& store, const Snapshot& snapshot) {
    const auto columns = store.integer(
        "SELECT sum(name IN ('seq', 'id', 'timestamp', 'type', 'data')) * 100 + count(*) "
        "FROM pragma_table_info('DataEntry')");
    if (!columns) return Failure(snapshot.sentence(columns.error()));
    if (*columns != 505)
        return Failure(snapshot.store().string() + " has no table of records as this version keeps them.");
    return {};
}

std::expected<Recovery, std::string> writeNew(const SqliteConnection& from, const fs::path& newStore) {
    auto to = SqliteConnection::open(newStore, nullptr, std::chrono::seconds(1));
    if (!to) return Failure(to.error().description + ".");
    if (auto configured = (*to)->configure(); !configured) return Failure(configured.error().description + ".");
    if (auto created = platform::createSchemaIn(**to); !created) return Failure(created.error().description + ".");
    auto recovery = Rescue(from, **to).run();
    (*to)->tidyUpWhenClosed();
    return recovery;
}

}  // namespace

std::expected<Recovery, std::string> recover(const fs::path& dataDirectory, const fs::path& newStore) {
    const auto target = platform::absolutePath(newStore);
    std::error_code failure;
    if (fs::equivalent(target.parent_path(), dataDirectory, failure))
        return Failure("The directory of the data is left as it is: name a new file elsewhere.");
    if (const auto process = processThatUses(dataDirectory / storeName))
        return Failure("The store is in use" + (*process > 0 ? " by process " + std::to_string(*process) : "") +
                       ": stop the host first.");
    const auto snapshot = Snapshot::take(dataDirectory);
    if (!snapshot) return Failure(snapshot.error());
    const auto from = snapshot->open(storeName);
    if (!from) return Failure(from.error());
    if (auto checked = checkTable(**from, *snapshot); !checked) return Failure(checked.error());
    NewFile file(target);
    if (auto made = file.make(); !made) return Failure(made.error());
    auto recovery = writeNew(**from, target);
    if (recovery) file.finish();
    return recovery;
}

}  // namespace tarvex::tool
