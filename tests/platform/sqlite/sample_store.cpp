#include "sample_store.h"

#include <bit>
#include <cstring>
#include <unordered_set>

#include "child_process.h"

namespace tarvex::test {
namespace {

using namespace platform;
using Window = std::uint64_t;  // any eight bytes in a file

const FetchRequest everySample{"DataEntry", {}};

/// The same well-mixed bytes for the same number.
std::uint64_t mixed(std::uint64_t number) {
    number = (number + 0x9E3779B97F4A7C15U) * 0xBF58476D1CE4E5B9U;
    number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
    return number ^ (number >> 31U);
}

/// Eight letters that no other sample has.
std::string markOf(std::uint64_t number) {
    std::string mark(sizeof(Window), 'a');
    for (auto rest = mixed(number); char& letter : mark) {
        letter = static_cast<char>('a' + rest % 26);
        rest /= 26;
    }
    return mark;
}

Uuid identifierOf(std::uint64_t number) {
    return {std::bit_cast<decltype(Uuid::bytes)>(std::array{mixed(number), mixed(~number)})};
}

double timestampOf(std::uint64_t number) {
    return 1.7e9 + static_cast<double>(number) + static_cast<double>(mixed(number) % 999983) / 1e6;
}

/// Mostly short; the data of every seventh is longer than a page.
std::vector<AttributeValue> valuesOf(int number) {
    const auto seed = static_cast<std::uint64_t>(number);
    std::string text;
    for (int i = 0; i < (number % 7 == 6 ? 600 : 6); ++i)
        text += '<' + markOf(seed) + '>';
    const auto bytes = std::as_bytes(std::span(text));
    return {identifierOf(seed), timestampOf(seed), std::string("ambient_light"),
            std::vector<std::byte>(bytes.begin(), bytes.end())};
}

int numberOf(std::span<const AttributeView> values) {
    const auto* id = std::get_if<Uuid>(values.data());
    const auto* timestamp = std::get_if<double>(&values[1]);
    const auto* type = std::get_if<std::string_view>(&values[2]);
    const auto* data = std::get_if<std::span<const std::byte>>(&values[3]);
    if (!id || !timestamp || !type || !data) return -1;
    const int number = static_cast<int>(*timestamp - 1.7e9);
    const auto made = valuesOf(number);
    const bool same = made[0] == AttributeValue(*id) && made[1] == AttributeValue(*timestamp) &&
                      made[2] == AttributeValue(std::string(*type)) &&
                      std::ranges::equal(std::get<std::vector<std::byte>>(made[3]), *data);
    return same ? number : -1;
}

Window windowAt(const void* bytes) {
    Window window = 0;
    std::memcpy(&window, bytes, sizeof(window));
    return window;
}

/// What only these samples have, as SQLite stores it: their identifiers' halves, their times, highest byte first, and
/// their marks.
std::unordered_set<Window> tracesOf(const std::vector<int>& numbers) {
    std::unordered_set<Window> traces;
    for (const int number : numbers) {
        const auto seed = static_cast<std::uint64_t>(number);
        const Uuid id = identifierOf(seed);
        traces.insert({windowAt(id.bytes.data()), windowAt(id.bytes.data() + sizeof(Window)),
                       windowAt(markOf(seed).data()), __builtin_bswap64(std::bit_cast<Window>(timestampOf(seed)))});
    }
    return traces;
}

bool anyFileHolds(const std::filesystem::path& directory, const std::unordered_set<Window>& traces) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::string contents = contentsOf(entry.path());
        for (std::size_t at = 0; at + sizeof(Window) <= contents.size(); ++at)
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
    context().insertNewObject("DataEntry")->values = valuesOf(number);
}

std::expected<void, StoreError> SampleStore::add(int number) {
    return addAll({number});
}

std::expected<void, StoreError> SampleStore::addAll(const std::vector<int>& numbers) {
    std::ranges::for_each(numbers, [this](int number) { insert(number); });
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

std::string OtherProgram::run(const std::string& sql) {
    std::string answer;
    const auto append = [](void* text, int, char** columns, char**) {
        static_cast<std::string*>(text)->append(columns[0]);
        return 0;
    };
    if (sqlite3_exec(database_, sql.c_str(), append, &answer, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(database_));
    return answer;
}

std::string integrity(const std::filesystem::path& directory) {
    return OtherProgram(directory / SampleStore::fileName).run("PRAGMA integrity_check");
}

std::vector<int> range(int first, int count) {
    const auto numbers = std::views::iota(first, first + count);
    return {numbers.begin(), numbers.end()};
}

}  // namespace tarvex::test
