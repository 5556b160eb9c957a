#include "collector/store/sqlite/sqlite_store.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "collector/store/sqlite/database.h"
#include "collector/store/tombstone.h"

namespace tarvex::collector {
namespace {

constexpr std::int64_t schemaVersion = 1;

std::uint64_t unsignedOf(std::int64_t count) {
    return static_cast<std::uint64_t>(count);
}

class SqliteStore final : public Store {
public:
    SqliteStore(const std::filesystem::path& file, const char* vfs) : database_(file, vfs) { prepare(); }

    std::optional<Receipt> countRepeat(const Body& body) override {
        Transaction transaction(database_);
        auto receipt = repeat(body);
        if (receipt) transaction.commit();
        return receipt;
    }

    Receipt import(const Body& body, const Document& document, bool needsEnrolment, double expired) override;

    std::vector<Participant> participants() override;
    std::vector<DaySummary> days(const TimeSpan& span) override;
    std::vector<Bucket> series(const std::string& participant, Column column, const TimeSpan& span,
                               int buckets) override;
    std::vector<UnreadableRecord> unreadable(int most) override;
    std::vector<AuditEntry> audit(int most) override;

    void visitLight(const Selection& selection,
                    const std::function<void(const std::string&, const AmbientLight&)>& visit) override {
        visitRows(selection, "light", [&](const std::string& participant, const Query& row) {
            visit(participant, {.time = row.number(0),
                                .lux = row.number(1),
                                .channels = {row.number(2), row.number(3), row.number(4), row.number(5)}});
        });
    }
    void visitDistances(const Selection& selection,
                        const std::function<void(const std::string&, const Distance&)>& visit) override {
        visitRows(selection, "distances", [&](const std::string& participant, const Query& row) {
            visit(participant, {.time = row.number(0), .leftEye = row.number(1), .rightEye = row.number(2)});
        });
    }
    void visitOthers(const Selection& selection,
                     const std::function<void(const std::string&, const OtherSample&)>& visit) override {
        visitRows(selection, "others", [&](const std::string& participant, const Query& row) {
            visit(participant, {.time = row.number(0), .type = row.text(1), .values = row.text(2)});
        });
    }

    bool enrol(const std::string& participant) override {
        Query& enrolling = database_.query("enrol").bind(participant);
        const bool isThere = enrolling.step();
        enrolling.run();
        return isThere;
    }
    bool erase(const std::string& participant) override;
    std::uint64_t expire(double before) override;
    void note(const AuditEntry& entry) override { database_.query("note").bind(entry.time, entry.what).run(); }

private:
    struct Counts {
        std::uint64_t fresh = 0;
        std::uint64_t expired = 0;
        std::optional<double> newest;
    };

    void prepare();
    std::optional<Receipt> repeat(const Body& body);
    Digest tombstone(const std::string& participant);
    std::optional<std::int64_t> idOf(const std::string& participant);
    template <typename Sample>
    void insert(const SampleQueue<Sample>& samples, double expired, Counts& counts,
                const std::function<void(const Sample&)>& insertOne);
    void insertSamples(std::int64_t participant, const Document& document, double expired, Counts& counts);
    void visitRows(const Selection& selection, const std::string& statement,
                   const std::function<void(const std::string&, const Query&)>& visit);

    Database database_;
};

void SqliteStore::prepare() {
    // Several may open a new file at once, of which one makes it what it is.
    database_.runPatiently(database_.statements().at("settings"));
    Transaction transaction(database_);
    const auto version = [this] {
        std::int64_t number = 0;
        Query query = database_.prepare("PRAGMA user_version");
        if (query.step()) number = query.integer(0);
        return number;
    }();
    if (version > schemaVersion) throw StoreUnavailable("the store was made by a newer collector");
    if (version == 0) {
        database_.run(database_.statements().at("schema"));
        database_.run("PRAGMA user_version = " + std::to_string(schemaVersion));
    }
    transaction.commit();
}

/// Within a transaction.
std::optional<Receipt> SqliteStore::repeat(const Body& body) {
    Query& known = database_.query("known_body").bind(std::span<const std::uint8_t>(body.digest));
    if (!known.step()) return std::nullopt;
    const auto participant = known.integer(0);
    const auto samples = unsignedOf(known.integer(1));
    known.run();
    database_.query("count_repeat").bind(participant, samples, body.received).run();
    return Receipt{.samples = samples, .fresh = 0, .isRepeat = true};
}

Digest SqliteStore::tombstone(const std::string& participant) {
    Query& salt = database_.query("salt").bind();
    if (!salt.step()) throw StoreUnavailable("the store has lost its salt");
    const Digest digest = tombstoneOf(salt.blob(0), participant);
    salt.reset();
    return digest;
}

std::optional<std::int64_t> SqliteStore::idOf(const std::string& participant) {
    Query& query = database_.query("participant").bind(participant);
    std::optional<std::int64_t> id;
    if (query.step()) id = query.integer(0);
    query.reset();
    return id;
}

Receipt SqliteStore::import(const Body& body, const Document& document, bool needsEnrolment, double expired) {
    Transaction transaction(database_);
    const Sender& sender = document.sender;
    const Digest hash = tombstone(sender.participant);
    Query& tombstones = database_.query("tombstone").bind(std::span<const std::uint8_t>(hash));
    const bool isDeleted = tombstones.step();
    tombstones.reset();
    if (isDeleted) return {.samples = document.sampleCount()};
    if (auto known = repeat(body)) {
        transaction.commit();
        return *known;
    }
    Query& meeting = database_.query("meet").bind(sender.participant, sender.application, sender.device,
                                                  !needsEnrolment, body.received);
    meeting.step();
    const auto participant = meeting.integer(0);
    meeting.run();

    Counts counts;
    insertSamples(participant, document, expired, counts);
    const auto samples = document.sampleCount();
    database_.query("insert_document")
        .bind(std::span<const std::uint8_t>(body.digest), participant, body.received, body.bytes, samples, counts.fresh)
        .run();
    for (const Unreadable& record : document.unreadable)
        database_.query("insert_unreadable").bind(participant, body.received, record.reason, record.excerpt).run();
    std::optional<double> skew;
    if (counts.newest) skew = *counts.newest - body.received;
    database_.query("count_document")
        .bind(participant, samples - counts.fresh - counts.expired, document.unreadableCount, skew)
        .run();
    transaction.commit();
    return {.samples = samples, .fresh = counts.fresh};
}

template <typename Sample>
void SqliteStore::insert(const SampleQueue<Sample>& samples, double expired, Counts& counts,
                         const std::function<void(const Sample&)>& insertOne) {
    samples.visit([&](std::span<const Sample> batch) {
        for (const Sample& sample : batch) {
            counts.newest = std::max(counts.newest.value_or(sample.time), sample.time);
            if (sample.time < expired) {
                ++counts.expired;
                continue;
            }
            insertOne(sample);
            counts.fresh += unsignedOf(database_.changes());
        }
    });
}

void SqliteStore::insertSamples(std::int64_t participant, const Document& document, double expired, Counts& counts) {
    insert<AmbientLight>(document.light, expired, counts,
                         [&, &query = database_.query("insert_light")](const AmbientLight& sample) {
                             const auto& [first, second, third, fourth] = sample.channels;
                             query.bind(participant, sample.time, sample.lux, first, second, third, fourth).run();
                         });
    insert<Distance>(document.distances, expired, counts,
                     [&, &query = database_.query("insert_distance")](const Distance& sample) {
                         query.bind(participant, sample.time, sample.leftEye, sample.rightEye).run();
                     });
    insert<OtherSample>(document.others, expired, counts,
                        [&, &query = database_.query("insert_other")](const OtherSample& sample) {
                            query.bind(participant, sample.time, sample.type, sample.values).run();
                        });
}

std::vector<Participant> SqliteStore::participants() {
    std::vector<Participant> participants;
    for (Query& row = database_.query("participants").bind(); row.step();)
        participants.push_back({.identifier = row.text(0),
                                .application = row.text(1),
                                .device = row.text(2),
                                .isEnrolled = row.integer(3) != 0,
                                .firstContact = row.number(4),
                                .lastContact = row.number(5),
                                .documents = unsignedOf(row.integer(6)),
                                .repeats = unsignedOf(row.integer(7)),
                                .unreadable = unsignedOf(row.integer(8)),
                                .clockSkew = row.number(9)});
    return participants;
}

std::vector<DaySummary> SqliteStore::days(const TimeSpan& span) {
    std::vector<DaySummary> days;
    const double from = std::max(span.from, calendar.from);
    const double until = std::min(span.until, calendar.until);
    for (const auto& [name, signal] : {std::pair("light_days", Signal::light), {"distance_days", Signal::distance}}) {
        for (Query& row = database_.query(name).bind(from, until); row.step();)
            days.push_back({.participant = row.text(0),
                            .signal = signal,
                            .day = row.integer(1),
                            .samples = unsignedOf(row.integer(2)),
                            .least = row.number(3),
                            .greatest = row.number(4),
                            .seconds = static_cast<std::uint64_t>(row.number(5))});
    }
    return days;
}

std::vector<Bucket> SqliteStore::series(const std::string& participant, Column column, const TimeSpan& span,
                                        int buckets) {
    const auto id = idOf(participant);
    const bool isBounded = span.until > span.from && std::isfinite(span.until - span.from);
    if (!id || buckets < 1 || !isBounded) return {};
    static constexpr std::array names{"lux_series", "left_eye_series", "right_eye_series"};
    const char* name = names.at(static_cast<std::size_t>(column));
    const double width = (span.until - span.from) / buckets;
    std::vector<Bucket> series;
    for (Query& row = database_.query(name).bind(*id, span.from, span.until, width); row.step();)
        series.push_back({.time = span.from + static_cast<double>(row.integer(0)) * width,
                          .least = row.number(1),
                          .greatest = row.number(2),
                          .samples = unsignedOf(row.integer(3))});
    return series;
}

std::vector<UnreadableRecord> SqliteStore::unreadable(int most) {
    std::vector<UnreadableRecord> records;
    for (Query& row = database_.query("unreadable").bind(most); row.step();)
        records.push_back(
            {.participant = row.text(0), .received = row.number(1), .reason = row.text(2), .excerpt = row.text(3)});
    return records;
}

std::vector<AuditEntry> SqliteStore::audit(int most) {
    std::vector<AuditEntry> entries;
    for (Query& row = database_.query("audit").bind(most); row.step();)
        entries.push_back({.time = row.number(0), .what = row.text(1)});
    return entries;
}

void SqliteStore::visitRows(const Selection& selection, const std::string& statement,
                            const std::function<void(const std::string&, const Query&)>& visit) {
    for (const Participant& participant : participants()) {
        if (selection.participant && participant.identifier != *selection.participant) continue;
        if (!participant.isEnrolled && !selection.includesPen) continue;
        const auto id = idOf(participant.identifier);
        if (!id) continue;
        for (Query& row = database_.query(statement).bind(*id, selection.time.from, selection.time.until); row.step();)
            visit(participant.identifier, row);
    }
}

bool SqliteStore::erase(const std::string& participant) {
    database_.run(database_.statements().at("begin_erasing"));
    Transaction transaction(database_);
    const auto id = idOf(participant);
    const Digest hash = tombstone(participant);
    database_.query("bury").bind(std::span<const std::uint8_t>(hash)).run();
    if (id) {
        for (const char* name : {"erase_light", "erase_distances", "erase_others", "erase_documents",
                                 "erase_unreadable", "erase_participant"})
            database_.query(name).bind(*id).run();
    }
    transaction.commit();
    database_.run(database_.statements().at("scrub"));
    return id.has_value();
}

std::uint64_t SqliteStore::expire(double before) {
    Transaction transaction(database_);
    std::uint64_t expired = 0;
    for (const char* name : {"expire_light", "expire_distances", "expire_others"}) {
        database_.query(name).bind(before).run();
        expired += unsignedOf(database_.changes());
    }
    transaction.commit();
    return expired;
}

}  // namespace

std::unique_ptr<Store> openSqliteStore(const std::filesystem::path& file, const char* vfs) {
    return std::make_unique<SqliteStore>(file, vfs);
}

}  // namespace tarvex::collector
