#include "collector/store/postgresql/postgresql_import.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "collector/store/postgresql/postgresql_rows.h"

namespace tarvex::collector {
namespace {

constexpr double day = 86400;
// Sent to the server at once.
constexpr std::size_t pieceBytes = 64UL * 1024;

/// Writes rows by COPY. `write` appends one of them.
template <typename Range, typename Write>
void copyRows(PostgresqlConnection& connection, const std::string& statement, const Range& rows, const Write& write) {
    BinaryCopy copy;
    auto next = rows.begin();
    bool hasEnded = false;
    connection.copy(statement, [&]() -> std::string_view {
        if (next != rows.begin() || hasEnded) copy.clear();
        while (next != rows.end() && copy.bytes().size() < pieceBytes)
            write(copy, *next++);
        if (next == rows.end() && !hasEnded) {
            copy.end();
            hasEnded = true;
        }
        return copy.bytes();
    });
}

template <typename Sample>
std::span<const Sample> withoutExpired(std::span<const Sample> batch, double expired) {
    const auto isExpired = [expired](const Sample& sample) { return sample.time < expired; };
    const auto first = std::ranges::partition_point(batch, isExpired);
    return batch.subspan(static_cast<std::size_t>(first - batch.begin()));
}

template <typename Sample>
void addMonths(std::span<const Sample> batch, Months& months) {
    double endOfMonth = -std::numeric_limits<double>::infinity();
    for (const Sample& sample : batch) {
        if (sample.time < endOfMonth) continue;
        const auto month = monthOf(sample.time);
        if (!month) continue;
        months.insert(*month);
        endOfMonth = beginOf(*month + std::chrono::months(1));
    }
}

template <typename Sample>
void measure(const SampleQueue<Sample>& queue, double expired, Extent& extent, Extent::Part& part) {
    queue.visit([&](std::span<const Sample> all) {
        extent.newest = std::max(extent.newest.value_or(all.back().time), all.back().time);
        const auto batch = withoutExpired(all, expired);
        extent.expired += all.size() - batch.size();
        if (batch.empty()) return;
        addMonths(batch, extent.months);
        part.isOrdered = part.isOrdered && batch.front().time >= part.until;
        part.from = std::min(part.from, batch.front().time);
        part.until = std::max(part.until, batch.back().time);
    });
}

/// The import of the samples of one participant.
class SampleImport {
public:
    SampleImport(PostgresqlConnection& connection, std::int64_t participant, double expired)
        : connection_(connection), participant_(participant), expired_(expired) {}

    template <typename Sample>
    void add(const SampleQueue<Sample>& queue, const Extent::Part& part) {
        if (!part.isOrdered) {
            merge(queue, part);
            return;
        }
        queue.visit([this](std::span<const Sample> batch) {
            const auto rows = Rows<Sample>::of(withoutExpired(batch, expired_));
            addSorted<Sample>(rows);
        });
    }

    std::uint64_t fresh() const { return fresh_; }

private:
    /// Lets the server sort them: each batch would be compared with all that is there.
    template <typename Sample>
    void merge(const SampleQueue<Sample>& queue, const Extent::Part& part) {
        const std::string kind = Rows<Sample>::kind;
        connection_.run(statement("patience with sorting"));
        connection_.run(statement("incoming " + kind));
        queue.visit([&](std::span<const Sample> batch) {
            copyBatch<Sample>("copy incoming " + kind, Rows<Sample>::of(withoutExpired(batch, expired_)));
        });
        fresh_ += connection_.execute(statement("merge " + kind), {participant_, part.from, part.until}).changed();
    }

    template <typename Sample, typename Range>
    void copyBatch(const std::string& name, const Range& rows) {
        copyRows(connection_, statement(name), rows,
                 [this](BinaryCopy& copy, const auto& row) { Rows<Sample>::write(copy, participant_, row); });
    }

    /// What is there already is left out here and not by the server: to read it in its order is cheaper than to write
    /// it into a table for the comparison. The participant's lock keeps others from adding to it meanwhile.
    template <typename Sample>
    void addSorted(std::span<const typename Rows<Sample>::Row> rows) {
        std::vector<typename Rows<Sample>::Row> fresh;
        fresh.reserve(rows.size());
        while (!rows.empty()) {
            const auto run = rows.first(lengthOfRun(rows));
            appendFresh<Sample>(run, fresh);
            rows = rows.subspan(run.size());
        }
        fresh_ += fresh.size();
        if (fresh.empty()) return;
        copyBatch<Sample>(std::string("copy ") + Rows<Sample>::kind, fresh);
    }

    /// Rows without a long gap, so that a wrong clock does not make all that lies between be read.
    template <typename Row>
    static std::size_t lengthOfRun(std::span<const Row> rows) {
        std::size_t length = 1;
        while (length < rows.size() && rows[length].time - rows[length - 1].time < day)
            ++length;
        return length;
    }

    template <typename Sample, typename Row>
    void appendFresh(std::span<const Row> run, std::vector<std::remove_const_t<Row>>& fresh) {
        auto next = run.begin();
        connection_.stream(statement(std::string("known ") + Rows<Sample>::kind),
                           {participant_, run.front().time, run.back().time}, [&](const PostgresqlRow& row) {
                               const auto known = Rows<Sample>::read(row);
                               while (next != run.end() && *next < known)
                                   fresh.push_back(*next++);
                               if (next != run.end() && *next == known) ++next;
                           });
        fresh.insert(fresh.end(), next, run.end());
    }

    PostgresqlConnection& connection_;
    std::int64_t participant_;
    double expired_;
    std::uint64_t fresh_ = 0;
};

std::int64_t participantOf(PostgresqlConnection& connection, const Body& body, const Sender& sender,
                           const Digest& participant, bool needsEnrolment) {
    return connection
        .execute(statement("participant"), {participant, sender.participant, sender.application, sender.device,
                                            !needsEnrolment, body.received})[0]
        .integer(0);
}

void keepUnreadable(PostgresqlConnection& connection, std::int64_t participant, const Body& body,
                    const std::vector<Unreadable>& unreadable) {
    if (unreadable.empty()) return;
    copyRows(connection, statement("copy quarantine"), unreadable, [&](BinaryCopy& copy, const Unreadable& record) {
        copy.beginRow(4);
        copy.add(participant);
        copy.add(body.received);
        copy.add(storableText(record.reason));
        copy.add(storableText(record.excerpt));
    });
}

}  // namespace

std::optional<Receipt> countKnown(PostgresqlConnection& connection, const Body& body) {
    const PostgresqlResult known = connection.execute(statement("count repeat"), {body.digest, body.received});
    if (known.size() == 0) return std::nullopt;
    return Receipt{.samples = known[0].count(0), .fresh = 0, .isRepeat = true};
}

Extent extentOf(const Document& document, double expired) {
    Extent extent;
    measure(document.light, expired, extent, extent.light);
    measure(document.distances, expired, extent, extent.distances);
    measure(document.others, expired, extent, extent.others);
    return extent;
}

Receipt importDocument(PostgresqlConnection& connection, const Body& body, const Document& document,
                       const Extent& extent, bool needsEnrolment, double expired) {
    const Sender& sender = document.sender;
    const Digest digest = digestOf(sender.participant);
    Receipt receipt{.samples = document.sampleCount()};
    PostgresqlTransaction transaction(connection);
    lockParticipant(connection, digest);
    if (connection.execute(statement("is deleted"), {bytesOf(sender.participant)})[0].boolean(0)) return receipt;
    if (const auto known = countKnown(connection, body)) {
        transaction.commit();
        return *known;
    }
    const std::int64_t participant = participantOf(connection, body, sender, digest, needsEnrolment);
    SampleImport samples(connection, participant, expired);
    samples.add(document.light, extent.light);
    samples.add(document.distances, extent.distances);
    samples.add(document.others, extent.others);
    keepUnreadable(connection, participant, body, document.unreadable);
    receipt.fresh = samples.fresh();
    connection.execute(statement("document"), {body.digest, participant, sender.application, sender.device,
                                               body.received, body.bytes, receipt.samples, receipt.fresh});
    connection.execute(statement("count document"),
                       {participant, sender.application, sender.device, body.received,
                        receipt.samples - receipt.fresh - extent.expired, document.unreadableCount,
                        extent.newest.has_value(), extent.newest.value_or(0) - body.received});
    transaction.commit();
    return receipt;
}

}  // namespace tarvex::collector
