#include "collector/research/json_answers.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <cmath>
#include <map>
#include <set>

namespace tarvex::collector {
namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr double secondsOfDay = 86'400;

void write(Writer& writer, std::string_view text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}
void write(Writer& writer, const std::string& text) {
    write(writer, std::string_view(text));
}
void write(Writer& writer, const char* text) {
    write(writer, std::string_view(text));
}
void write(Writer& writer, double number) {
    if (std::isfinite(number))
        writer.Double(number);
    else
        writer.Null();
}
void write(Writer& writer, std::uint64_t number) {
    writer.Uint64(number);
}
void write(Writer& writer, std::int64_t number) {
    writer.Int64(number);
}
void write(Writer& writer, bool value) {
    writer.Bool(value);
}

void member(Writer& writer, std::string_view name, const auto& value) {
    write(writer, name);
    write(writer, value);
}

void list(Writer& writer, const auto&... values) {
    writer.StartArray();
    (write(writer, values), ...);
    writer.EndArray();
}

/// An array with an object for each value, whose members `describe` writes.
template <typename Value, typename Describe>
void objects(Writer& writer, std::string_view name, const std::vector<Value>& values, Describe describe) {
    write(writer, name);
    writer.StartArray();
    for (const Value& value : values) {
        writer.StartObject();
        describe(value);
        writer.EndObject();
    }
    writer.EndArray();
}

template <typename Describe>
Response jsonObject(Describe describe) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    describe(writer);
    writer.EndObject();
    return {.contentType = "application/json", .body = {buffer.GetString(), buffer.GetSize()}};
}

std::string_view nameOf(Problem::Severity severity) {
    constexpr std::array<std::string_view, 3> names{"information", "warning", "error"};
    return names.at(static_cast<std::size_t>(severity));
}

std::string_view nameOf(Problem::Kind kind) {
    constexpr std::array<std::string_view, 9> names{
        "silent",        "nothingMeasured",    "lightIsZero", "lightIsStuck", "clockIsAhead",
        "clockIsBehind", "impossibleDistance", "unreadable",  "repeats"};
    return names.at(static_cast<std::size_t>(kind));
}

std::string_view nameOf(Signal signal) {
    return signal == Signal::light ? "light" : "distance";
}

void writeTotals(Writer& writer, const StudyAnswer& study) {
    std::uint64_t enrolled = 0;
    std::uint64_t documents = 0;
    std::uint64_t repeats = 0;
    std::uint64_t unreadable = 0;
    std::uint64_t inContact = 0;
    std::set<std::string_view> waiting;
    for (const Participant& participant : study.participants) {
        if (participant.isEnrolled)
            ++enrolled;
        else
            waiting.insert(participant.identifier);
        documents += participant.documents;
        repeats += participant.repeats;
        unreadable += participant.unreadable;
        if (participant.isEnrolled && study.now - participant.lastContact < secondsOfDay) ++inContact;
    }
    std::uint64_t samples = 0;
    for (const DaySummary& day : study.days)
        if (!waiting.contains(day.participant)) samples += day.samples;
    write(writer, "totals");
    writer.StartObject();
    member(writer, "enrolled", enrolled);
    member(writer, "waiting", std::uint64_t{waiting.size()});
    member(writer, "inContactWithinADay", inContact);
    member(writer, "documents", documents);
    member(writer, "repeats", repeats);
    member(writer, "unreadable", unreadable);
    member(writer, "recentSamples", samples);
    writer.EndObject();
}

void writeParticipants(Writer& writer, const StudyAnswer& study, std::string_view name, bool areEnrolled) {
    write(writer, name);
    writer.StartArray();
    for (const Participant& participant : study.participants) {
        if (participant.isEnrolled != areEnrolled) continue;
        writer.StartObject();
        member(writer, "identifier", participant.identifier);
        member(writer, "application", participant.application);
        member(writer, "device", participant.device);
        member(writer, "firstContact", participant.firstContact);
        member(writer, "lastContact", participant.lastContact);
        member(writer, "documents", participant.documents);
        member(writer, "repeats", participant.repeats);
        member(writer, "unreadable", participant.unreadable);
        member(writer, "clockSkew", participant.clockSkew);
        writer.EndObject();
    }
    writer.EndArray();
}

/// An entry about a participant that is still there gets the identifier, which the audit itself does not hold.
void writeAudit(Writer& writer, const StudyAnswer& study) {
    std::map<std::string_view, std::string_view> identifiers;
    for (std::size_t place = 0; place < study.marks.size(); ++place)
        identifiers[study.marks[place]] = study.participants[place].identifier;
    objects(writer, "audit", study.audit, [&](const AuditEntry& entry) {
        member(writer, "time", entry.time);
        member(writer, "what", entry.what);
        const std::size_t mark = entry.what.find('#');
        const auto found = identifiers.find(std::string_view(entry.what).substr(std::min(mark, entry.what.size())));
        if (found == identifiers.end()) return;
        member(writer, "participant", found->second);
    });
}

}  // namespace

Response answerOf(const StudyAnswer& study) {
    return jsonObject([&study](Writer& writer) {
        member(writer, "now", study.now);
        write(writer, "expectedIntervals");
        writer.StartObject();
        member(writer, "light", study.expected.light);
        member(writer, "distance", study.expected.distance);
        writer.EndObject();
        writeTotals(writer, study);
        writeParticipants(writer, study, "participants", true);
        writeParticipants(writer, study, "pen", false);
        objects(writer, "problems", study.problems, [&writer](const Problem& problem) {
            member(writer, "participant", problem.participant);
            member(writer, "severity", nameOf(problem.severity));
            member(writer, "kind", nameOf(problem.kind));
            member(writer, "sentence", problem.sentence);
        });
        objects(writer, "unreadable", study.unreadable, [&writer](const UnreadableRecord& record) {
            member(writer, "participant", record.participant);
            member(writer, "received", record.received);
            member(writer, "reason", record.reason);
            member(writer, "excerpt", record.excerpt);
        });
        writeAudit(writer, study);
    });
}

Response answerOf(const std::vector<DaySummary>& days, const TimeSpan& span) {
    std::map<std::string_view, std::map<std::string_view, std::vector<const DaySummary*>>> sorted;
    for (const DaySummary& day : days)
        sorted[day.participant][nameOf(day.signal)].push_back(&day);
    return jsonObject([&](Writer& writer) {
        member(writer, "from", span.from);
        member(writer, "until", span.until);
        write(writer, "participants");
        writer.StartObject();
        for (const auto& [participant, signals] : sorted) {
            write(writer, participant);
            writer.StartObject();
            for (const auto& [signal, ofSignal] : signals) {
                write(writer, signal);
                writer.StartArray();
                for (const DaySummary* day : ofSignal)
                    list(writer, day->day, day->samples, day->least, day->greatest, day->seconds);
                writer.EndArray();
            }
            writer.EndObject();
        }
        writer.EndObject();
    });
}

Response answerOf(const std::vector<Bucket>& buckets, const TimeSpan& span) {
    return jsonObject([&](Writer& writer) {
        member(writer, "from", span.from);
        member(writer, "until", span.until);
        write(writer, "buckets");
        writer.StartArray();
        for (const Bucket& bucket : buckets)
            list(writer, bucket.time, bucket.least, bucket.greatest, bucket.samples);
        writer.EndArray();
    });
}

Response answerOf(std::string_view name, bool value) {
    return jsonObject([&](Writer& writer) { member(writer, name, value); });
}

Response refusal(int status, std::string_view sentence) {
    Response response = jsonObject([&](Writer& writer) { member(writer, "error", sentence); });
    response.status = status;
    return response;
}

}  // namespace tarvex::collector
