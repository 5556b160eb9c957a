#include "collector/store/postgresql/postgresql_connection.h"

#include <array>
#include <bit>
#include <cstring>
#include <set>
#include <stdexcept>
#include <vector>

#include "collector/store/postgresql/network_order.h"
#include "collector/store/statements.h"
#include "embedded/store/postgresql/statements.sql.h"

namespace tarvex::collector {
namespace {

// Of the server's catalogue, which never changes them.
constexpr Oid booleanType = 16;
constexpr Oid bytesType = 17;
constexpr Oid integerType = 20;
constexpr Oid textType = 25;
constexpr Oid realType = 701;

// With these, texts keep their order.
constexpr char escape = '\1';
constexpr char escapedZero = '\1';
constexpr char escapedEscape = '\2';

std::string oneLine(std::string text) {
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (char& character : text)
        if (character == '\n') character = ' ';
    return text;
}

/// What comes before the URL can be set by it; what comes after cannot.
PGconn* connect(const std::string& url) {
    const std::array<const char*, 10> names{
        "connect_timeout",      "tcp_user_timeout", "keepalives_idle", "keepalives_interval", "keepalives_count",
        "target_session_attrs", "application_name", "dbname",          "client_encoding",     nullptr};
    const std::array<const char*, 10> values{"10",        "30000", "10",   "5", "3", "read-write", "tarvex-collector",
                                             url.c_str(), "UTF8",  nullptr};
    return PQconnectdbParams(names.data(), values.data(), 1);
}

}  // namespace

bool PostgresqlError::isPassing() const {
    static const std::set<std::string> states{
        "",       // the connection is lost
        "40001",  // serialization failure
        "40P01",  // deadlock
        "23514",  // the partition is gone: its month has expired meanwhile
        "23505",  // the row has been added meanwhile
    };
    return states.contains(state_);
}

const std::string& statement(const std::string& name) {
    static const Statements statements(embedded::store_postgresql_statements_sql);
    return statements.at(name);
}

std::string storableText(std::string_view text) {
    std::string storable;
    storable.reserve(text.size());
    for (const char character : text) {
        if (character == '\0')
            storable.append({escape, escapedZero});
        else if (character == escape)
            storable.append({escape, escapedEscape});
        else
            storable += character;
    }
    return storable;
}

std::string originalText(std::string_view storable) {
    std::string text;
    text.reserve(storable.size());
    for (std::size_t place = 0; place < storable.size(); ++place) {
        if (storable[place] == escape && place + 1 < storable.size())
            text += storable[++place] == escapedZero ? '\0' : escape;
        else
            text += storable[place];
    }
    return text;
}

PostgresqlValue::PostgresqlValue(bool value) : type(booleanType), bytes(1, value ? '\1' : '\0') {}

PostgresqlValue::PostgresqlValue(std::int64_t value) : type(integerType) {
    appendNetworkOrder(bytes, static_cast<std::uint64_t>(value));
}

PostgresqlValue::PostgresqlValue(double value) : type(realType) {
    appendNetworkOrder(bytes, std::bit_cast<std::uint64_t>(value));
}

PostgresqlValue::PostgresqlValue(const std::string& text) : type(textType), bytes(storableText(text)) {}

PostgresqlValue::PostgresqlValue(std::span<const std::uint8_t> value)
    : type(bytesType), bytes(value.begin(), value.end()) {}

std::string_view PostgresqlRow::bytes(int column, std::size_t size) const {
    const auto length = static_cast<std::size_t>(PQgetlength(result_, row_, column));
    if (length != size) throw std::logic_error("a column of the database has another type than expected");
    return {PQgetvalue(result_, row_, column), length};
}

bool PostgresqlRow::boolean(int column) const {
    return bytes(column, 1).front() != '\0';
}

std::int64_t PostgresqlRow::integer(int column) const {
    return static_cast<std::int64_t>(fromNetworkOrder(bytes(column, 8)));
}

double PostgresqlRow::real(int column) const {
    return std::bit_cast<double>(fromNetworkOrder(bytes(column, 8)));
}

std::string PostgresqlRow::text(int column) const {
    return originalText(
        {PQgetvalue(result_, row_, column), static_cast<std::size_t>(PQgetlength(result_, row_, column))});
}

Digest PostgresqlRow::digest(int column) const {
    Digest digest{};
    const std::string_view stored = bytes(column, digest.size());
    std::memcpy(digest.data(), stored.data(), stored.size());
    return digest;
}

std::uint64_t PostgresqlResult::changed() const {
    const std::string count = PQcmdTuples(result_.get());
    return count.empty() ? 0 : std::stoull(count);
}

PostgresqlConnection::PostgresqlConnection(const std::string& url) : connection_(connect(url), PQfinish) {
    if (PQstatus(connection_.get()) != CONNECTION_OK) fail(nullptr);
    PQsetNoticeReceiver(
        connection_.get(),
        [](void* self, const PGresult*) { static_cast<PostgresqlConnection*>(self)->warned_ = true; }, this);
    run(statement("session"));
}

void PostgresqlConnection::fail(const PGresult* result) {
    const char* state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    const char* primary = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    const bool isLost = PQstatus(connection_.get()) != CONNECTION_OK;
    throw PostgresqlError(
        "the database cannot do it: " + oneLine(primary == nullptr ? PQerrorMessage(connection_.get()) : primary),
        state == nullptr || isLost ? "" : state);
}

PostgresqlResult PostgresqlConnection::checked(PGresult* result) {
    PostgresqlResult owned(result);
    const ExecStatusType status = PQresultStatus(result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) fail(result);
    return owned;
}

void PostgresqlConnection::run(const std::string& statements) {
    checked(PQexec(connection_.get(), statements.c_str()));
}

namespace {

/// Values as libpq takes them. Valid as long as they are.
struct Arguments {
    explicit Arguments(std::span<const PostgresqlValue> values) : formats(values.size(), 1) {
        for (const PostgresqlValue& value : values) {
            types.push_back(value.type);
            pointers.push_back(value.bytes.data());
            lengths.push_back(static_cast<int>(value.bytes.size()));
        }
    }

    int count() const { return static_cast<int>(types.size()); }

    std::vector<Oid> types;
    std::vector<const char*> pointers;
    std::vector<int> lengths;
    std::vector<int> formats;
};

}  // namespace

bool PostgresqlConnection::tryToRun(const std::string& statements) {
    const PostgresqlResult result(PQexec(connection_.get(), statements.c_str()));
    return PQresultStatus(result.get()) == PGRES_COMMAND_OK;
}

PostgresqlResult PostgresqlConnection::execute(const std::string& statement, Values values) {
    const Arguments arguments({values.begin(), values.size()});
    return checked(PQexecParams(connection_.get(), statement.c_str(), arguments.count(), arguments.types.data(),
                                arguments.pointers.data(), arguments.lengths.data(), arguments.formats.data(), 1));
}

void PostgresqlConnection::stream(const std::string& statement, Values values,
                                  const std::function<void(const PostgresqlRow&)>& visit) {
    const Arguments arguments({values.begin(), values.size()});
    if (PQsendQueryParams(connection_.get(), statement.c_str(), arguments.count(), arguments.types.data(),
                          arguments.pointers.data(), arguments.lengths.data(), arguments.formats.data(), 1) == 0 ||
        PQsetSingleRowMode(connection_.get()) == 0)
        fail(nullptr);
    while (PGresult* next = PQgetResult(connection_.get())) {
        const PostgresqlResult result(next);
        const ExecStatusType status = PQresultStatus(next);
        if (status == PGRES_SINGLE_TUPLE) {
            visit(result[0]);
        } else if (status != PGRES_TUPLES_OK) {
            while (PGresult* rest = PQgetResult(connection_.get()))
                PQclear(rest);
            fail(next);
        }
    }
}

void PostgresqlConnection::copy(const std::string& statement, const std::function<std::string_view()>& write) {
    const PostgresqlResult start(PQexec(connection_.get(), statement.c_str()));
    if (PQresultStatus(start.get()) != PGRES_COPY_IN) fail(start.get());
    bool isTaken = true;
    for (std::string_view piece = write(); isTaken && !piece.empty(); piece = write())
        isTaken = PQputCopyData(connection_.get(), piece.data(), static_cast<int>(piece.size())) == 1;
    isTaken = isTaken && PQputCopyEnd(connection_.get(), nullptr) == 1;
    const PostgresqlResult end(PQgetResult(connection_.get()));
    while (PGresult* rest = PQgetResult(connection_.get()))
        PQclear(rest);
    if (!isTaken || PQresultStatus(end.get()) != PGRES_COMMAND_OK) fail(end.get());
}

void PostgresqlConnection::commit() {
    run(statement("before commit"));
    warned_ = false;
    uncertain_ = true;
    const PostgresqlResult result(PQexec(connection_.get(), statement("commit").c_str()));
    if (PQstatus(connection_.get()) != CONNECTION_OK)
        throw StoreUnavailable("the connection to the database was lost before it had said what became of a commit");
    if (warned_)
        throw StoreUnavailable("the database has committed with a warning, and may lose what it has committed");
    uncertain_ = false;
    if (PQresultStatus(result.get()) != PGRES_COMMAND_OK) fail(result.get());
    if (std::string_view(PQcmdStatus(result.get())) != "COMMIT")
        throw StoreUnavailable("the database has taken a transaction back instead of committing it");
}

bool PostgresqlConnection::isUsable() const {
    const PGTransactionStatusType status = PQtransactionStatus(connection_.get());
    return !uncertain_ && PQstatus(connection_.get()) == CONNECTION_OK && status != PQTRANS_ACTIVE &&
           status != PQTRANS_UNKNOWN;
}

PostgresqlTransaction::~PostgresqlTransaction() {
    // Where that fails, the connection is lost, and with it the transaction.
    if (connection_.isUsable() && connection_.isInTransaction()) connection_.tryToRun(statement("rollback"));
}

}  // namespace tarvex::collector
