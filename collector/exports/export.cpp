#include "collector/exports/export.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>

#include "embedded/exports/dictionary.csv.h"

namespace tarvex::collector {
namespace {

// What is handed over at once.
constexpr std::size_t pieceSize = 64UL * 1024;

/// Rows of text, handed over in pieces.
class Rows {
public:
    explicit Rows(const Sink& sink) : sink_(sink) {}

    Rows& text(std::string_view text) {
        piece_.append(text);
        return *this;
    }
    Rows& number(double number) {
        std::array<char, 32> digits{};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number);
        return text({digits.data(), end.ptr});
    }
    Rows& csv(std::string_view value) {
        if (value.find_first_of(",\"\r\n") == std::string_view::npos) return text(value);
        return doubling(value);
    }
    Rows& json(std::string_view value);

    void end() {
        piece_.push_back('\n');
        if (piece_.size() >= pieceSize) flush();
    }
    void flush() {
        sink_(piece_);
        piece_.clear();
    }

private:
    Rows& doubling(std::string_view value) {
        piece_.push_back('"');
        for (const char letter : value) {
            if (letter == '"') piece_.push_back('"');
            piece_.push_back(letter);
        }
        piece_.push_back('"');
        return *this;
    }

    const Sink& sink_;
    std::string piece_;
};

Rows& Rows::json(std::string_view value) {
    piece_.push_back('"');
    for (const char letter : value) {
        if (letter == '"' || letter == '\\') {
            piece_.push_back('\\');
            piece_.push_back(letter);
        } else if (static_cast<unsigned char>(letter) < 0x20) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(letter));
            piece_.append(escape.data());
        } else {
            piece_.push_back(letter);
        }
    }
    piece_.push_back('"');
    return *this;
}

using Values = std::initializer_list<std::pair<const char*, double>>;

void writeRow(Rows& rows, Format format, const std::string& participant, double time, const Values& values) {
    if (format == Format::csv) {
        rows.csv(participant).text(",").number(time).text(",").text(isoTime(time));
        for (const auto& [name, value] : values)
            rows.text(",").number(value);
    } else {
        rows.text(R"({"participant":)").json(participant).text(R"(,"time":)").number(time);
        rows.text(R"(,"timeUTC":")").text(isoTime(time)).text("\"");
        for (const auto& [name, value] : values)
            rows.text(",").json(name).text(":").number(value);
        rows.text("}");
    }
    rows.end();
}

void writeOther(Rows& rows, Format format, const std::string& participant, const OtherSample& sample) {
    if (format == Format::csv) {
        rows.csv(participant).text(",").number(sample.time).text(",").text(isoTime(sample.time)).text(",");
        rows.csv(sample.type).text(",").csv(sample.values);
    } else {
        rows.text(R"({"participant":)").json(participant).text(R"(,"time":)").number(sample.time);
        rows.text(R"(,"timeUTC":")").text(isoTime(sample.time)).text(R"(","type":)").json(sample.type);
        rows.text(R"(,"values":)").text(sample.values).text("}");
    }
    rows.end();
}

const char* headingOf(Kind kind) {
    switch (kind) {
        case Kind::light:
            return "participant,time,timeUTC,lux,channel0,channel1,channel2,channel3\n";
        case Kind::distance:
            return "participant,time,timeUTC,leftEyeDistanceFromCamera,rightEyeDistanceFromCamera\n";
        case Kind::other:
            return "participant,time,timeUTC,type,values\n";
    }
    return "";
}

}  // namespace

void exportSamples(Store& store, Kind kind, Format format, const Selection& selection, const Sink& sink) {
    Rows rows(sink);
    if (format == Format::csv) rows.text(headingOf(kind));
    switch (kind) {
        case Kind::light:
            store.visitLight(selection, [&](const std::string& participant, const AmbientLight& sample) {
                const auto& [first, second, third, fourth] = sample.channels;
                writeRow(rows, format, participant, sample.time,
                         {{"lux", sample.lux},
                          {"channel0", first},
                          {"channel1", second},
                          {"channel2", third},
                          {"channel3", fourth}});
            });
            break;
        case Kind::distance:
            store.visitDistances(selection, [&](const std::string& participant, const Distance& sample) {
                writeRow(
                    rows, format, participant, sample.time,
                    {{"leftEyeDistanceFromCamera", sample.leftEye}, {"rightEyeDistanceFromCamera", sample.rightEye}});
            });
            break;
        case Kind::other:
            store.visitOthers(selection, [&](const std::string& participant, const OtherSample& sample) {
                writeOther(rows, format, participant, sample);
            });
            break;
    }
    rows.flush();
}

std::string dataDictionary() {
    return std::string(embedded::exports_dictionary_csv);
}

std::string_view nameOf(Kind kind) {
    static constexpr std::array<std::string_view, 3> names{"light", "distance", "other"};
    return names.at(static_cast<std::size_t>(kind));
}

std::string_view nameOf(Format format) {
    return format == Format::csv ? "csv" : "jsonl";
}

std::string isoTime(double seconds) {
    // A clock may be wrong without bound.
    const bool hasDate = seconds >= calendar.from && seconds < calendar.until;
    if (!hasDate) return "";
    double whole = std::floor(seconds);
    auto microseconds = std::lround((seconds - whole) * 1e6);
    if (microseconds == 1'000'000) {
        whole += 1;
        microseconds = 0;
    }
    const auto time = static_cast<std::time_t>(whole);
    std::tm date{};
    gmtime_r(&time, &date);
    std::array<char, 40> text{};
    const auto length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &date);
    std::snprintf(text.data() + length, text.size() - length, ".%06ldZ", microseconds);
    return text.data();
}

}  // namespace tarvex::collector
