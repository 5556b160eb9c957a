#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "collector/store/statements.h"

namespace tarvex::collector {

/// A prepared statement. Its values are bound in order; texts stay the caller's until the next `reset`.
class Query {
public:
    explicit Query(sqlite3_stmt* statement) : statement_(statement) {}

    template <typename... Values>
    Query& bind(const Values&... values) {
        reset();
        int place = 0;
        (put(++place, values), ...);
        return *this;
    }

    /// True while there is a row. Throws `StoreUnavailable`.
    bool step();
    /// To the end. Throws `StoreUnavailable`.
    void run() {
        while (step()) {
        }
    }
    void reset() { sqlite3_reset(statement_.get()); }

    double number(int column) const { return sqlite3_column_double(statement_.get(), column); }
    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }
    std::string text(int column) const;
    std::string blob(int column) const;

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    void put(int place, double value) { sqlite3_bind_double(statement_.get(), place, value); }
    void put(int place, std::int64_t value) { sqlite3_bind_int64(statement_.get(), place, value); }
    void put(int place, std::uint64_t value) { put(place, static_cast<std::int64_t>(value)); }
    void put(int place, int value) { put(place, std::int64_t{value}); }
    void put(int place, bool value) { put(place, std::int64_t{value}); }
    void put(int place, const std::string& text);
    void put(int place, std::span<const std::uint8_t> bytes);
    void put(int place, const std::optional<double>& value);

    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// A connection to one file. Reentrant. Everything throws `StoreUnavailable`.
class Database {
public:
    /// `vfs`: SQLite's own without one.
    Database(const std::filesystem::path& path, const char* vfs);

    void run(const std::string& statements);
    /// As `run`, and again while another connection is in the way: for what SQLite itself does not wait for.
    void runPatiently(const std::string& statements);
    Query prepare(const std::string& statement);
    /// The named statement, ready to be bound.
    Query& query(const std::string& name);
    int changes() const { return sqlite3_changes(database_.get()); }
    [[noreturn]] void fail() const;

    const Statements& statements() const { return statements_; }

private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };

    Statements statements_;
    std::unique_ptr<sqlite3, Close> database_;
    std::map<std::string, Query> queries_;
};

/// One transaction, rolled back unless it was committed.
class Transaction {
public:
    explicit Transaction(Database& database) : database_(database) { database_.run("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& database_;
    bool isCommitted_ = false;
};

}  // namespace tarvex::collector
