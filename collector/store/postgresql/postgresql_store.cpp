#include "collector/store/postgresql/postgresql_store.h"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

#include "collector/store/postgresql/postgresql_erasure.h"
#include "collector/store/postgresql/postgresql_import.h"
#include "collector/store/postgresql/postgresql_rows.h"
#include "collector/store/postgresql/postgresql_session.h"

namespace tarvex::collector {
namespace {

const char* seriesOf(Column column) {
    switch (column) {
        case Column::lux:
            return "series of lux";
        case Column::leftEye:
            return "series of left eyes";
        case Column::rightEye:
            break;
    }
    return "series of right eyes";
}

Participant participantOf(const PostgresqlRow& row) {
    return {
        .identifier = row.text(0),
        .application = row.text(1),
        .device = row.text(2),
        .isEnrolled = row.boolean(3),
        .firstContact = row.real(4),
        .lastContact = row.real(5),
        .documents = row.count(6),
        .repeats = row.count(7),
        .unreadable = row.count(8),
        .clockSkew = row.real(9),
    };
}

DaySummary dayOf(const PostgresqlRow& row) {
    return {
        .participant = row.text(0),
        .signal = row.integer(1) == 0 ? Signal::light : Signal::distance,
        .day = row.integer(2),
        .samples = row.count(3),
        .least = row.real(4),
        .greatest = row.real(5),
        .seconds = row.count(6),
    };
}

OtherSample otherOf(const PostgresqlRow& row) {
    return {.time = row.real(0), .type = row.text(1), .values = row.text(2)};
}

class PostgresqlStore final : public Store {
public:
    explicit PostgresqlStore(const std::string& url) : session_(url) {}

    std::optional<Receipt> countRepeat(const Body& body) override {
        return session_.change([&](PostgresqlConnection& connection) { return countKnown(connection, body); });
    }

    Receipt import(const Body& body, const Document& document, bool needsEnrolment, double expired) override {
        const Extent extent = extentOf(document, expired);
        return session_.attempt([&](PostgresqlConnection& connection) {
            // Known no more when this fails: it may have failed of them.
            Months known = std::exchange(months_, {});
            if (!std::ranges::includes(known, extent.months)) makeMonths(connection, extent.months);
            const Receipt receipt = importDocument(connection, body, document, extent, needsEnrolment, expired);
            known.insert(extent.months.begin(), extent.months.end());
            months_ = std::move(known);
            return receipt;
        });
    }

    std::vector<Participant> participants() override { return rows("participants", {}, participantOf); }

    std::vector<DaySummary> days(const TimeSpan& span) override {
        return rows("days", {std::max(span.from, calendar.from), std::min(span.until, calendar.until)}, dayOf);
    }

    std::vector<Bucket> series(const std::string& participant, Column column, const TimeSpan& span,
                               int buckets) override {
        const bool isBounded = span.from < span.until && std::isfinite(span.until - span.from);
        if (buckets <= 0 || !isBounded) return {};
        const double width = (span.until - span.from) / buckets;
        return rows(seriesOf(column),
                    {digestOf(participant), span.from, span.until, static_cast<std::int64_t>(buckets)},
                    [&](const PostgresqlRow& row) {
                        return Bucket{.time = span.from + static_cast<double>(row.integer(0)) * width,
                                      .least = row.real(1),
                                      .greatest = row.real(2),
                                      .samples = row.count(3)};
                    });
    }

    std::vector<UnreadableRecord> unreadable(int most) override {
        return rows("unreadable", {static_cast<std::int64_t>(most)}, [](const PostgresqlRow& row) {
            return UnreadableRecord{
                .participant = row.text(0), .received = row.real(1), .reason = row.text(2), .excerpt = row.text(3)};
        });
    }

    std::vector<AuditEntry> audit(int most) override {
        return rows("audit", {static_cast<std::int64_t>(most)},
                    [](const PostgresqlRow& row) { return AuditEntry{.time = row.real(0), .what = row.text(1)}; });
    }

    void visitLight(const Selection& selection,
                    const std::function<void(const std::string&, const AmbientLight&)>& visit) override {
        stream("visit light", selection, visit, lightOf);
    }
    void visitDistances(const Selection& selection,
                        const std::function<void(const std::string&, const Distance&)>& visit) override {
        stream("visit distances", selection, visit, distanceOf);
    }
    void visitOthers(const Selection& selection,
                     const std::function<void(const std::string&, const OtherSample&)>& visit) override {
        stream("visit others", selection, visit, otherOf);
    }

    bool enrol(const std::string& participant) override {
        return session_.change([&](PostgresqlConnection& connection) {
            return connection.execute(statement("enrol"), {digestOf(participant)}).changed() > 0;
        });
    }

    bool erase(const std::string& participant) override {
        Tables touched;
        const bool wasThere = session_.change(
            [&](PostgresqlConnection& connection) { return eraseParticipant(connection, participant, touched); });
        vacuum(*session_.connection(), touched);
        return wasThere;
    }

    std::uint64_t expire(double before) override {
        session_.attempt([&](PostgresqlConnection& connection) { detachMonthsBefore(connection, before); });
        months_.clear();
        const std::uint64_t dropped = session_.attempt(dropDetached);
        return dropped +
               session_.change([&](PostgresqlConnection& connection) { return deleteRowsBefore(connection, before); },
                               "begin long");
    }

    void note(const AuditEntry& entry) override {
        session_.change([&](PostgresqlConnection& connection) {
            return connection.execute(statement("note"), {entry.time, entry.what}).changed();
        });
    }

private:
    template <typename Read>
    std::vector<std::invoke_result_t<Read, const PostgresqlRow&>> rows(const char* name,
                                                                       PostgresqlConnection::Values values,
                                                                       const Read& read) {
        return session_.attempt([&](PostgresqlConnection& connection) {
            std::vector<std::invoke_result_t<Read, const PostgresqlRow&>> all;
            connection.stream(statement(name), values, [&](const PostgresqlRow& row) { all.push_back(read(row)); });
            return all;
        });
    }

    template <typename Visit, typename Read>
    void stream(const char* name, const Selection& selection, const Visit& visit, const Read& read) {
        std::shared_ptr<PostgresqlConnection> connection;
        const auto reading = session_.attempt([&](PostgresqlConnection& usable) {
            connection = session_.connection();
            return std::make_unique<PostgresqlTransaction>(usable, "begin reading");
        });
        const PostgresqlResult selected = connection->execute(
            statement("selected"),
            {selection.includesPen, !selection.participant.has_value(), digestOf(selection.participant.value_or(""))});
        for (int each = 0; each < selected.size(); ++each) {
            const std::string participant = selected[each].text(1);
            connection->stream(statement(name), {selected[each].integer(0), selection.time.from, selection.time.until},
                               [&](const PostgresqlRow& row) { visit(participant, read(row)); });
        }
    }

    PostgresqlSession session_;
    Months months_;  ///< that have partitions, as far as this store knows
};

}  // namespace

std::unique_ptr<Store> openPostgresqlStore(const std::string& url) {
    return std::make_unique<PostgresqlStore>(url);
}

}  // namespace tarvex::collector
