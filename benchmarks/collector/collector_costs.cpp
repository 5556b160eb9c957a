// What the collector needs for a million samples, beside what is the least that one could do.
// usage: tarvex_collector_costs [ROUNDS]

#include <rapidjson/reader.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "collector/exports/export.h"
#include "collector/ingest/document_reader.h"
#include "collector/store/sqlite/sqlite_store.h"
#include "light_documents.h"
#include "measures.h"
#include "temporary_directory.h"

namespace tarvex::benchmarks {
namespace {

using namespace collector;

/// The largest memory of a process that does the work, over one that does nothing; megabytes.
double memoryOf(const std::function<void()>& work) {
    const auto peak = [](const std::function<void()>& task) {
        const pid_t child = ::fork();
        if (child == 0) {
            task();
            ::_exit(0);
        }
        rusage usage{};
        ::wait4(child, nullptr, 0, &usage);
        return static_cast<double>(usage.ru_maxrss) / 1024;
    };
    return peak(work) - peak([] {});
}

/// RapidJSON's own reading of the same bytes, which looks at nothing.
void readBare(const TemporaryFile& file) {
    struct Stream {
        using Ch = char;
        const TemporaryFile& file;
        std::vector<char> window = std::vector<char>(64UL * 1024);
        std::uint64_t begin = 0;
        std::size_t filled = 0;
        std::size_t position = 0;

        Ch Peek() {
            if (position == filled) {
                begin += filled;
                filled = file.read(begin, std::as_writable_bytes(std::span(window)));
                position = 0;
            }
            return filled > 0 ? window[position] : '\0';
        }
        Ch Take() {
            const Ch taken = Peek();
            if (filled > 0) ++position;
            return taken;
        }
        std::size_t Tell() const { return begin + position; }
        static Ch* PutBegin() { return nullptr; }
        static void Put(Ch /*letter*/) {}
        static void Flush() {}
        static std::size_t PutEnd(Ch* /*begin*/) { return 0; }
    } stream{.file = file};
    rapidjson::BaseReaderHandler<> nothing;
    rapidjson::Reader reader;
    if (reader.Parse < rapidjson::kParseFullPrecisionFlag |
        rapidjson::kParseValidateEncodingFlag > (stream, nothing).IsError())
        throw std::runtime_error("the bare reader fails");
}

/// The least that stores the samples: rows without a key.
void insertBare(const std::filesystem::path& path, const Document& document) {
    sqlite3* database = nullptr;
    sqlite3_open(path.c_str(), &database);
    sqlite3_exec(
        database,
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
        "CREATE TABLE light(participant INTEGER, time REAL, lux REAL, c0 REAL, c1 REAL, c2 REAL, c3 REAL); BEGIN",
        nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(database, "INSERT INTO light VALUES(?,?,?,?,?,?,?)", -1, &insert, nullptr);
    document.light.visit([&](std::span<const AmbientLight> batch) {
        for (const AmbientLight& sample : batch) {
            sqlite3_bind_int64(insert, 1, 1);
            sqlite3_bind_double(insert, 2, sample.time);
            sqlite3_bind_double(insert, 3, sample.lux);
            for (int channel = 0; channel < 4; ++channel)
                sqlite3_bind_double(insert, 4 + channel, sample.channels[static_cast<std::size_t>(channel)]);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
    });
    sqlite3_finalize(insert);
    if (sqlite3_exec(database, "COMMIT; PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error("the bare insert fails");
    sqlite3_close(database);
}

double megabytesOf(const std::filesystem::path& file) {
    return static_cast<double>(std::filesystem::file_size(file)) / 1e6;
}

void checkpoint(const std::filesystem::path& path) {
    sqlite3* database = nullptr;
    sqlite3_open(path.c_str(), &database);
    sqlite3_exec(database, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    sqlite3_close(database);
}

/// One round; each figure is a ratio inside it.
struct Round {
    double parse = 0;
    double first = 0;
    double same = 0;
    double shuffled = 0;
    double known = 0;
    double size = 0;
    double fifth = 0;
    double exported = 0;
};

double exportBare(const std::filesystem::path& path) {
    const std::string command =
        "sqlite3 -csv -header '" + path.string() +
        "' \"SELECT 'one', time, strftime('%Y-%m-%dT%H:%M:%f', time, 'unixepoch'), lux, channel0, "
        "channel1, channel2, channel3 FROM ambient_light ORDER BY participant, time\" > /dev/null";
    return costOf([&] {
               if (std::system(command.c_str()) != 0) throw std::runtime_error("sqlite3 fails");
           })
        .clock;
}

Round measureRound() {
    const test::TemporaryDirectory directory;
    TemporaryFile ordered(directory.path());
    TemporaryFile mixed(directory.path());
    auto order = seconds(million);
    write(ordered, order, 1'780'000'000);
    std::ranges::shuffle(order, std::mt19937(3));
    write(mixed, order, 1'780'000'000);
    Round round;
    const double bareRead = costOf([&] { readBare(ordered); }).processor;
    std::optional<Document> document;
    round.parse = costOf([&] { document = readDocument(ordered, directory.path()); }).processor / bareRead;
    const Document shuffled = readDocument(mixed, directory.path());

    const auto bareFile = directory.path() / "bare.sqlite";
    const double bare = costOf([&] { insertBare(bareFile, *document); }).processor;
    const auto file = directory.path() / "samples.sqlite";
    const auto store = openSqliteStore(file);
    const auto import = [&](const Document& imported, std::uint8_t number) {
        const Receipt receipt = store->import(bodyOf(ordered, number), imported, false, -1e300);
        if (receipt.samples != million) throw std::runtime_error("the import fails");
    };
    round.first = costOf([&] { import(*document, 1); }).processor / bare;
    checkpoint(file);
    round.size = megabytesOf(file) / megabytesOf(bareFile);
    round.same = costOf([&] { import(*document, 2); }).processor / bare;
    round.shuffled = costOf([&] { import(shuffled, 3); }).processor / bare;
    round.known = costOf([&] { store->countRepeat(bodyOf(ordered, 1)); }).processor / bare;
    const double own =
        costOf([&] {
            std::ofstream nowhere("/dev/null");
            exportSamples(*store, Kind::light, Format::csv, {}, [&](std::string_view piece) { nowhere << piece; });
        }).clock;
    round.exported = own / exportBare(file);

    std::vector<double> millions;
    for (int number = 1; number <= 4; ++number) {
        TemporaryFile later(directory.path());
        write(later, seconds(million), 1'780'000'000 + number * 1e6);
        const Document more = readDocument(later, directory.path());
        millions.push_back(costOf([&] { import(more, static_cast<std::uint8_t>(10 + number)); }).processor / bare);
    }
    round.fifth = millions.back() / round.first;
    return round;
}

double parseMemory() {
    const test::TemporaryDirectory directory;
    TemporaryFile ordered(directory.path());
    write(ordered, seconds(million), 1'780'000'000);
    return memoryOf([&] { readDocument(ordered, directory.path()); });
}

void measure(int rounds) {
    std::vector<Round> all;
    for (int round = 0; round < rounds; ++round)
        all.push_back(measureRound());
    std::printf("| What, for 1,000,000 samples | Measured | Target |\n|---|---|---|\n");
    printRow(all, "parse and check, CPU against RapidJSON’s bare streaming read", &Round::parse, "≤ 1.4 ×");
    std::printf("| parse and check, memory | %.1f MB | ≤ 32 MB |\n", parseMemory());
    printRow(all, "SQLite, first post, CPU against a bare unkeyed INSERT", &Round::first, "≤ 1.8 ×");
    printRow(all, "SQLite, the same samples again", &Round::same, "≤ 1.4 ×");
    printRow(all, "SQLite, the same samples shuffled", &Round::shuffled, "≤ 2 ×");
    printRow(all, "SQLite, the very body again", &Round::known, "≤ 0.2 ×");
    printRow(all, "SQLite, the fifth million against the first", &Round::fifth, "≤ 1.25 ×");
    printRow(all, "SQLite, size on disk against unkeyed", &Round::size, "≤ 1.15 ×");
    printRow(all, "export as CSV, time against the sqlite3 shell", &Round::exported, "≤ 1.2 ×");
}

}  // namespace
}  // namespace tarvex::benchmarks

int main(int count, char** arguments) {
    tarvex::benchmarks::measure(count > 1 ? std::atoi(arguments[1]) : 3);
    return 0;
}
