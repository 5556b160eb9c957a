#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "collector/store/document.h"
#include "collector/store/store.h"

namespace tarvex::collector {

/// The server has refused a statement, or the connection is lost.
class PostgresqlError : public StoreUnavailable {
public:
    PostgresqlError(const std::string& message, std::string state)
        : StoreUnavailable(message), state_(std::move(state)) {}

    /// The five letters of SQLSTATE; empty when the connection is lost.
    const std::string& state() const { return state_; }
    /// Whether another trial may do better: nothing of this one has stayed.
    bool isPassing() const;

private:
    std::string state_;
};

/// A statement of `statements.sql`.
const std::string& statement(const std::string& name);

/// A text as the server can keep it: it knows no zero bytes.
std::string storableText(std::string_view text);
/// The text that `storableText` was given.
std::string originalText(std::string_view storable);

/// A value of a statement, in the server's binary form.
struct PostgresqlValue {
    PostgresqlValue(bool value);
    PostgresqlValue(std::int64_t value);
    PostgresqlValue(std::uint64_t value) : PostgresqlValue(static_cast<std::int64_t>(value)) {}
    PostgresqlValue(double value);
    PostgresqlValue(const std::string& text);  ///< not storable ones become so
    PostgresqlValue(const Digest& digest) : PostgresqlValue(std::span<const std::uint8_t>(digest)) {}
    PostgresqlValue(std::span<const std::uint8_t> value);
    PostgresqlValue(const char*) = delete;

    Oid type;
    std::string bytes;
};

/// One row of a result. Valid as long as that.
class PostgresqlRow {
public:
    PostgresqlRow(const PGresult* result, int row) : result_(result), row_(row) {}

    bool boolean(int column) const;
    std::int64_t integer(int column) const;
    std::uint64_t count(int column) const { return static_cast<std::uint64_t>(integer(column)); }
    double real(int column) const;
    std::string text(int column) const;
    Digest digest(int column) const;

private:
    std::string_view bytes(int column, std::size_t size) const;

    const PGresult* result_;
    int row_;
};

class PostgresqlResult {
public:
    explicit PostgresqlResult(PGresult* result) : result_(result, PQclear) {}

    int size() const { return PQntuples(result_.get()); }
    PostgresqlRow operator[](int row) const { return {result_.get(), row}; }
    /// The rows that a statement has changed.
    std::uint64_t changed() const;
    PGresult* get() const { return result_.get(); }

private:
    std::unique_ptr<PGresult, decltype(&PQclear)> result_;
};

/// A connection to a server of PostgreSQL. All operations throw `PostgresqlError`. Reentrant.
class PostgresqlConnection {
public:
    using Values = std::initializer_list<PostgresqlValue>;

    explicit PostgresqlConnection(const std::string& url);
    ~PostgresqlConnection() = default;
    PostgresqlConnection(const PostgresqlConnection&) = delete;
    PostgresqlConnection& operator=(const PostgresqlConnection&) = delete;

    /// Runs several statements, whose results nobody needs.
    void run(const std::string& statements);
    /// False when the server refuses them.
    bool tryToRun(const std::string& statements);
    PostgresqlResult execute(const std::string& statement, Values values = {});
    /// Shows one row after the other, in constant memory. When `visit` throws, the connection is lost.
    void stream(const std::string& statement, Values values, const std::function<void(const PostgresqlRow&)>& visit);

    /// Makes a COPY … FROM STDIN of what `write` gives, piece by piece, an empty one at the end.
    void copy(const std::string& statement, const std::function<std::string_view()>& write);

    /// Commits a transaction. Throws `StoreUnavailable` also when the server has done it with a warning: then nobody
    /// knows how safe it is.
    void commit();
    /// False once it is lost, or lies in the middle of a statement.
    bool isUsable() const;
    bool isInTransaction() const { return PQtransactionStatus(connection_.get()) != PQTRANS_IDLE; }

private:
    PostgresqlResult checked(PGresult* result);
    [[noreturn]] void fail(const PGresult* result);

    std::unique_ptr<PGconn, decltype(&PQfinish)> connection_;
    bool warned_ = false;
    bool uncertain_ = false;
};

/// Takes back what is not committed when it goes.
class PostgresqlTransaction {
public:
    explicit PostgresqlTransaction(PostgresqlConnection& connection, const std::string& begin = "begin")
        : connection_(connection) {
        connection_.run(statement(begin));
    }
    ~PostgresqlTransaction();
    PostgresqlTransaction(const PostgresqlTransaction&) = delete;
    PostgresqlTransaction& operator=(const PostgresqlTransaction&) = delete;

    void commit() { connection_.commit(); }

private:
    PostgresqlConnection& connection_;
};

}  // namespace tarvex::collector
