#include "sample_store.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unordered_set>

#include "child_process.h"

namespace tarvex::test {
namespace {

using namespace platform;

const FetchRequest everySample{"DataEntry"};

/// The same well-mixed bytes for the same number.
std::uint64_t mixed(std::uint64_t number) {
    number = (number + 0x9E3779B97F4A7C15U) * 0xBF58476D1CE4E5B9U;
    number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
    return number ^ (number >> 31U);
}

Uuid identifierOf(int number) {
    const auto half = static_cast<std::uint64_t>(number);
    return {std::bit_cast<decltype(Uuid::bytes)>(std::array{mixed(half), mixed(~half)})};
}

double timestampOf(int number) {
    return 1.7e9 + number + static_cast<double>(mixed(static_cast<std::uint64_t>(number)) % 999983) / 1e6;
}

/// Eight letters that no other sample has.
std::string markOf(int number) {
    std::string mark(sizeof(std::uint64_t), 'a');
    for (auto rest = mixed(static_cast<std::uint64_t>(number)); char& letter : mark) {
        letter = static_cast<char>('a' + rest % 26);
        rest /= 26;
    }
    return mark;
}

/// Mostly short; every seventh is longer than a page.
std::string textOf(int number) {
    std::string text;
    for (int i = 0; i < (number % 7 == 6 ? 600 : 6); ++i)
        text += '<' + markOf(number) + '>';
    return text;
}

std::vector<std::byte> dataOf(int number) {
    const std::string text = textOf(number);
    std::vector<std::byte> data(text.size());
    std::ranges::transform(text, data.begin(), [](char c) { return static_cast<std::byte>(c); });
    return data;
}

int numberOf(std::span<const AttributeView> values) {
    const auto* id = std::get_if<Uuid>(values.data());
    const auto* timestamp = std::get_if<double>(&values[1]);
    const auto* type = std::get_if<std::string_view>(&values[2]);
    const auto* data = std::get_if<std::span<const std::byte>>(&values[3]);
    if (!id || !timestamp || !type || !data) return -1;
    const int number = static_cast<int>(*timestamp - 1.7e9);
    const bool same = *id == identifierOf(number) && *timestamp == timestampOf(number) && *type == "ambient_light" &&
                      std::ranges::equal(*data, dataOf(number));
    return same ? number : -1;
}

/// Any eight bytes in a file.
std::uint64_t windowAt(const char* bytes) {
    std::uint64_t window = 0;
    std::memcpy(&window, bytes, sizeof(window));
    return window;
}

/// What only these samples have, as SQLite stores it: their identifiers' halves, their times, highest byte first, and
/// their marks.
std::unordered_set<std::uint64_t> tracesOf(const std::vector<int>& numbers) {
    std::unordered_set<std::uint64_t> traces;
    for (int number : numbers) {
        const Uuid id = identifierOf(number);
        const auto* halves = reinterpret_cast<const char*>(id.bytes.data());
        traces.insert({windowAt(halves), windowAt(halves + sizeof(std::uint64_t)), windowAt(markOf(number).data()),
                       __builtin_bswap64(std::bit_cast<std::uint64_t>(timestampOf(number)))});
    }
    return traces;
}

bool anyFileHolds(const std::filesystem::path& directory, const std::unordered_set<std::uint64_t>& traces) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::string contents = contentsOf(entry.path());
        for (std::size_t at = 0; at + sizeof(std::uint64_t) <= contents.size(); ++at)
            if (traces.contains(windowAt(contents.data() + at))) return true;
    }
    return false;
}

}  // namespace

ManagedObjectModel sampleModel() {
    return {{{"DataEntry",
              {{"id", AttributeType::uuid, true},
               {"timestamp", AttributeType::number, false},
               {"type", AttributeType::string, true},
               {"data", AttributeType::binary, true}}}}};
}

SampleStore::SampleStore(const std::filesystem::path& directory, const char* vfs)
    : store_([directory] { return directory; }, vfs), container_(store_.makeContainer("Samples", sampleModel())) {}

void SampleStore::insert(int number) {
    auto& values = context().insertNewObject("DataEntry")->values;
    values = {identifierOf(number), timestampOf(number), std::string("ambient_light"), dataOf(number)};
}

std::expected<void, StoreError> SampleStore::add(int number) {
    insert(number);
    return context().save();
}

std::expected<void, StoreError> SampleStore::removeAll() {
    return context().batchDelete(everySample);
}

std::expected<std::int64_t, StoreError> SampleStore::count() {
    return context().count(everySample);
}

std::expected<std::vector<int>, StoreError> SampleStore::numbers() {
    std::vector<int> numbers;
    auto fetched = context().fetch(everySample, [&](std::span<const AttributeView> values) {
        numbers.push_back(numberOf(values));
        return true;
    });
    if (!fetched) return std::unexpected(fetched.error());
    return numbers;
}

bool leavesTrace(const std::filesystem::path& directory, const std::vector<int>& numbers) {
    const auto traces = tracesOf(numbers);
    const int found = ChildProcess([&](int) { return anyFileHolds(directory, traces) ? 1 : 0; }).wait();
    if (found < 0) throw std::runtime_error("cannot look into " + directory.native());
    return found == 1;
}

std::string integrity(const std::filesystem::path& directory) {
    std::string report;
    sqlite3* database = nullptr;
    sqlite3_open((directory / SampleStore::fileName).c_str(), &database);
    sqlite3_exec(
        database, "PRAGMA integrity_check",
        [](void* text, int, char** columns, char**) {
            static_cast<std::string*>(text)->append(columns[0]);
            return 0;
        },
        &report, nullptr);
    sqlite3_close(database);
    return report;
}

void runSql(const std::filesystem::path& directory, const std::string& sql) {
    sqlite3* database = nullptr;
    sqlite3_open((directory / SampleStore::fileName).c_str(), &database);
    const int code = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
    const std::string message = sqlite3_errmsg(database);
    sqlite3_close(database);
    if (code != SQLITE_OK) throw std::runtime_error(message);
}

std::string contentsOf(const std::filesystem::path& file) {
    std::ostringstream contents;
    contents << std::ifstream(file, std::ios::binary).rdbuf();
    return contents.str();
}

}  // namespace tarvex::test
