#include "collector/status/status.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "collector/exports/export.h"

namespace tarvex::collector {
namespace {

struct Totals {
    std::uint64_t waiting = 0;  ///< in the pen
    std::uint64_t documents = 0;
    std::uint64_t repeats = 0;
    std::uint64_t unreadable = 0;
    double lastContact = 0;
};

Totals totalsOf(const Status& status) {
    Totals totals;
    for (const Participant& participant : status.participants) {
        totals.waiting += participant.isEnrolled ? 0 : 1;
        totals.documents += participant.documents;
        totals.repeats += participant.repeats;
        totals.unreadable += participant.unreadable;
        totals.lastContact = std::max(totals.lastContact, participant.lastContact);
    }
    return totals;
}

/// As in "3 h", the largest unit that fits.
std::string durationText(double seconds) {
    struct Unit {
        double seconds;
        const char* name;
    };
    static constexpr std::array units{Unit{86'400, "d"}, Unit{3'600, "h"}, Unit{60, "min"}, Unit{1, "s"}};
    const auto* const unit =
        std::ranges::find_if(units, [&](const Unit& one) { return std::abs(seconds) >= one.seconds; });
    const Unit& used = unit != units.end() ? *unit : units.back();
    return std::to_string(std::lround(seconds / used.seconds)) + " " + used.name;
}

std::string countText(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string printable(const std::string& text) {
    std::string shown = text.empty() ? "(empty)" : text;
    for (char& letter : shown)
        if (static_cast<unsigned char>(letter) < 0x20 || letter == '\x7f') letter = '?';
    return shown;
}

std::string cell(const std::string& text, int width) {
    std::string padded = text;
    while (static_cast<int>(padded.size()) < width)
        padded.push_back(' ');
    return padded + "  ";
}

void metric(std::string& text, const char* name, const char* kind, const char* help, double value) {
    std::array<char, 512> lines{};
    std::snprintf(lines.data(), lines.size(), "# HELP %s %s\n# TYPE %s %s\n%s %.17g\n", name, help, name, kind, name,
                  value);
    text += lines.data();
}

}  // namespace

Status statusOf(Store& store) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return {.participants = store.participants(), .now = std::chrono::duration<double>(now).count()};
}

std::string textOf(const Status& status) {
    if (status.participants.empty()) return "Nothing has arrived yet.\n";
    std::string text = cell("Participant", 36) + cell("Last contact", 14) + cell("Documents", 9) + cell("Repeats", 9) +
                       cell("Unreadable", 10) + "Clock\n";
    for (const Participant& participant : status.participants) {
        text += cell(printable(participant.identifier), 36);
        text += cell(durationText(status.now - participant.lastContact) + " ago", 14);
        text += cell(std::to_string(participant.documents), 9) + cell(std::to_string(participant.repeats), 9);
        text += cell(std::to_string(participant.unreadable), 10) + durationText(participant.clockSkew);
        text += participant.isEnrolled ? "\n" : "  in the pen\n";
    }
    const Totals totals = totalsOf(status);
    text += countText(status.participants.size(), "participant") + ", " + countText(totals.documents, "document") +
            ", the last one " + durationText(status.now - totals.lastContact) + " ago";
    return text + (totals.waiting > 0 ? "; " + std::to_string(totals.waiting) + " in the pen\n" : "\n");
}

std::string jsonOf(const Status& status) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    const auto text = [&](const char* key, const std::string& value) {
        writer.Key(key);
        writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    };
    const auto count = [&](const char* key, std::uint64_t value) {
        writer.Key(key);
        writer.Uint64(value);
    };
    const auto seconds = [&](const char* key, double value) {
        writer.Key(key);
        writer.Double(value);
    };
    writer.StartObject();
    seconds("now", status.now);
    writer.Key("participants");
    writer.StartArray();
    for (const Participant& participant : status.participants) {
        writer.StartObject();
        text("identifier", participant.identifier);
        text("application", participant.application);
        text("device", participant.device);
        writer.Key("enrolled");
        writer.Bool(participant.isEnrolled);
        seconds("firstContact", participant.firstContact);
        seconds("lastContact", participant.lastContact);
        count("documents", participant.documents);
        count("repeats", participant.repeats);
        count("unreadable", participant.unreadable);
        seconds("clockSkew", participant.clockSkew);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

std::string metricsOf(const Status& status) {
    const Totals totals = totalsOf(status);
    std::string text;
    metric(text, "tarvex_participants", "gauge", "Participants from whom something came.",
           static_cast<double>(status.participants.size()));
    metric(text, "tarvex_participants_waiting", "gauge", "Participants in the pen.",
           static_cast<double>(totals.waiting));
    metric(text, "tarvex_documents_total", "counter", "Documents received.", static_cast<double>(totals.documents));
    metric(text, "tarvex_samples_repeated_total", "counter", "Samples that came again.",
           static_cast<double>(totals.repeats));
    metric(text, "tarvex_records_unreadable_total", "counter", "Records that could not be read.",
           static_cast<double>(totals.unreadable));
    metric(text, "tarvex_last_contact_timestamp_seconds", "gauge", "Time of the last document.", totals.lastContact);
    return text;
}

}  // namespace tarvex::collector
