#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "collector/store/document.h"

namespace tarvex::collector {

/// The store cannot do it now; nothing of the operation has happened, or nobody may rely on it.
class StoreUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What has become of a document. Committed before it is returned.
struct Receipt {
    std::uint64_t samples = 0;  ///< readable ones in the document
    std::uint64_t fresh = 0;    ///< of which the store had none
    bool isRepeat = false;      ///< the very body was known
};

/// A time span, its end excluded.
struct TimeSpan {
    double from = -std::numeric_limits<double>::infinity();
    double until = std::numeric_limits<double>::infinity();
};

/// The years 1 to 9999.
inline constexpr TimeSpan calendar{.from = -62'135'596'800, .until = 253'402'300'800};

enum class Signal : std::uint8_t { light, distance };

struct Participant {
    std::string identifier;
    std::string application;  ///< of the last document
    std::string device;
    bool isEnrolled = true;  ///< else it waits in the pen
    double firstContact = 0;
    double lastContact = 0;
    std::uint64_t documents = 0;  ///< different ones
    std::uint64_t repeats = 0;    ///< samples that came again
    std::uint64_t unreadable = 0;
    double clockSkew = 0;  ///< seconds that the newest sample of the last document with one was ahead of its receipt
};

/// One signal of one participant on one UTC day.
struct DaySummary {
    std::string participant;
    Signal signal;
    std::int64_t day;  ///< since 1970-01-01
    std::uint64_t samples;
    double least;  ///< lux, or the nearer eye
    double greatest;
    std::uint64_t seconds;  ///< between the first and the last
};

/// Part of a series, drawn as one stroke.
struct Bucket {
    double time;  ///< of its beginning
    double least;
    double greatest;
    std::uint64_t samples;
};

enum class Column : std::uint8_t { lux, leftEye, rightEye };

struct UnreadableRecord {
    std::string participant;
    double received;
    std::string reason;
    std::string excerpt;
};

/// What an export asks for.
struct Selection {
    std::optional<std::string> participant = std::nullopt;
    TimeSpan time;
    bool includesPen = false;
};

struct AuditEntry {
    double time;
    std::string what;
};

/// Where everything is kept that was acknowledged. An identifier of a deleted participant is known by a salted hash
/// alone: what comes from it afterwards is acknowledged and dropped.
///
/// Reentrant: each thread opens its own. Every operation throws `StoreUnavailable`.
class Store {
public:
    Store() = default;
    virtual ~Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Receiving

    /// Counts a body that is known already, in a transaction of its own; absent when it is not.
    virtual std::optional<Receipt> countRepeat(const Body& body) = 0;
    /// Stores what is new of a document, in one transaction. A participant that nobody has enrolled waits in the pen
    /// when `needsEnrolment`. Samples before `expired` are dropped.
    virtual Receipt import(const Body& body, const Document& document, bool needsEnrolment, double expired) = 0;

    // Looking

    virtual std::vector<Participant> participants() = 0;             ///< in the order of their identifiers
    virtual std::vector<DaySummary> days(const TimeSpan& span) = 0;  ///< within the calendar
    /// Nothing for a span without bound.
    virtual std::vector<Bucket> series(const std::string& participant, Column column, const TimeSpan& span,
                                       int buckets) = 0;
    virtual std::vector<UnreadableRecord> unreadable(int most) = 0;  ///< the newest first
    virtual std::vector<AuditEntry> audit(int most) = 0;             ///< the newest first

    /// Each shows one row after the other, ordered by participant and time, in constant memory.
    virtual void visitLight(const Selection& selection,
                            const std::function<void(const std::string&, const AmbientLight&)>& visit) = 0;
    virtual void visitDistances(const Selection& selection,
                                const std::function<void(const std::string&, const Distance&)>& visit) = 0;
    virtual void visitOthers(const Selection& selection,
                             const std::function<void(const std::string&, const OtherSample&)>& visit) = 0;

    // Changing

    virtual bool enrol(const std::string& participant) = 0;  ///< false when nothing came from it
    /// Deletes everything of the participant for good. False when nothing came from it; what comes is dropped even so.
    virtual bool erase(const std::string& participant) = 0;
    virtual std::uint64_t expire(double before) = 0;  ///< the number of samples that were deleted
    virtual void note(const AuditEntry& entry) = 0;
};

/// Opens, and makes where there is none: `sqlite:PATH`, or a PostgreSQL URL. Throws `StoreUnavailable`.
std::unique_ptr<Store> openStore(const std::string& url);

}  // namespace tarvex::collector
