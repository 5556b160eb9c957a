#include "store/csv_export.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <set>
#include <string_view>
#include <vector>

#include "platform/sqlite/sqlite_schema.h"
#include "storage/readable_record.h"
#include "storage/tracking_data.h"
#include "tarvex/platform/json.h"

namespace tarvex::tool {
namespace {

using Failure = std::unexpected<std::string>;

std::string numberText(double number) {
    platform::ByteBuffer text;
    return platform::appendJsonNumber(number, text) ? std::string(text.view()) : "";
}

std::string cell(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
    std::string quoted = "\"";
    for (const char letter : text)
        quoted.append(letter == '"' ? 2 : 1, letter);
    return quoted + "\"";
}

std::optional<TrackingData> sampleOf(const platform::ManagedObjectView& record, platform::ValueMapAppender& appender) {
    platform::ByteBuffer text;
    const auto readable = appendReadable(record, false, appender, text);
    if (!readable) return std::nullopt;
    auto values = decodeValueMap(text.view());
    if (!values) return std::nullopt;
    return TrackingData{
        .timestamp = readable->timestamp, .type = std::string(readable->type), .data = *std::move(values)};
}

std::string tableOf(const std::vector<TrackingData>& samples) {
    std::set<std::string, std::less<>> names;
    for (const TrackingData& sample : samples)
        for (const auto& [name, value] : sample.data)
            names.insert(name);
    std::string text = "timestamp,timeUTC,type";
    for (const std::string& name : names)
        text.append(",").append(cell(name));
    text += '\n';
    for (const TrackingData& sample : samples) {
        text.append(numberText(sample.timestamp)).append(",").append(utcText(sample.timestamp));
        text.append(",").append(cell(sample.type));
        for (const std::string& name : names) {
            const auto value = sample.data.find(name);
            text.append(",").append(value == sample.data.end() ? "" : numberText(value->second));
        }
        text += '\n';
    }
    return text;
}

}  // namespace

std::string utcText(double secondsSince1970) {
    constexpr double firstWithoutDate = 253'402'300'800;  // the year 10000
    const bool hasDate =
        secondsSince1970 >= 0 && secondsSince1970 < firstWithoutDate;  // not so for one that is no number
    if (!hasDate) return "";
    const auto microseconds = std::llround(secondsSince1970 * 1e6);
    const auto seconds = static_cast<std::time_t>(microseconds / 1'000'000);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%06lldZ", microseconds % 1'000'000);
    return text.data();
}

std::expected<CsvExport, std::string> exportCsv(const Snapshot& snapshot) {
    const auto store = snapshot.openStore();
    if (!store) return Failure(store.error());
    CsvExport result;
    std::vector<TrackingData> samples;
    if (const auto present = platform::schemaIsPresentIn(**store); present && *present) {
        const auto select = (*store)->prepare(platform::recordSelection);
        if (!select) return Failure(snapshot.sentence(select.error()));
        platform::ValueMapAppender values;
        int code = sqlite3_step(select->get());
        for (; code == SQLITE_ROW; code = sqlite3_step(select->get())) {
            if (auto sample = sampleOf(platform::recordIn(select->get()), values))
                samples.push_back(*std::move(sample));
            else
                ++result.left;
        }
        if (code != SQLITE_DONE)
            return Failure(snapshot.sentence((*store)->error()) + " (tarvex recover saves what it still holds)");
    }
    result.text = tableOf(samples);
    return result;
}

}  // namespace tarvex::tool
