#include "collector/service/export_routes.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "collector/exports/export.h"
#include "collector/exports/export_stream.h"
#include "collector/exports/participant_archive.h"

namespace tarvex::collector {
namespace {

Response fileNamed(const std::string& name, const char* contentType) {
    return {.contentType = contentType, .fields = {{"Content-Disposition", "attachment; filename=\"" + name + "\""}}};
}

std::optional<std::string> participantOf(const RequestHead& head) {
    const bool isGiven = std::ranges::any_of(head.query, [](const auto& one) { return one.first == "participant"; });
    return isGiven ? std::optional(std::string(head.parameter("participant"))) : std::nullopt;
}

/// The bound of a time span; `otherwise` where none is given, absent where it is no number.
std::optional<double> bound(const RequestHead& head, std::string_view name, double otherwise) {
    const std::string_view text = head.parameter(name);
    if (text.empty()) return otherwise;
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || std::isnan(number)) return std::nullopt;
    return number;
}

}  // namespace

std::optional<Response> answerExport(const RequestHead& head, const std::function<std::unique_ptr<Store>()>& open) {
    constexpr std::string_view folder = "/export/";
    const std::string file = head.path.substr(std::min(folder.size(), head.path.size()));
    const auto participant = participantOf(head);
    if (file == "dictionary.csv") {
        Response response = fileNamed(file, "text/csv; charset=utf-8");
        response.body = dataDictionary();
        return response;
    }
    if (file == "participant.zip") {
        if (!participant) return Response{.status = 400, .body = "Whose data is meant?\n"};
        Response response = fileNamed(file, "application/zip");
        response.pieces = streamExport(
            open, [whose = *participant](Store& store, const Sink& sink) { archiveParticipant(store, whose, sink); });
        return response;
    }
    const TimeSpan all;
    const auto from = bound(head, "from", all.from);
    const auto until = bound(head, "until", all.until);
    if (!from || !until) return Response{.status = 400, .body = "A time is a number of seconds since 1970.\n"};
    const Selection selection{.participant = participant, .time = {.from = *from, .until = *until}};
    for (const Kind kind : {Kind::light, Kind::distance, Kind::other}) {
        for (const Format format : {Format::csv, Format::jsonLines}) {
            if (file != std::string(nameOf(kind)).append(".").append(nameOf(format))) continue;
            Response response =
                fileNamed(file, format == Format::csv ? "text/csv; charset=utf-8" : "application/jsonl; charset=utf-8");
            response.pieces = streamExport(
                open, [=](Store& store, const Sink& sink) { exportSamples(store, kind, format, selection, sink); });
            return response;
        }
    }
    return std::nullopt;
}

}  // namespace tarvex::collector
