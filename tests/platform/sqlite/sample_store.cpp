#include "sample_store.h"

#include <unistd.h>

#include <bit>
#include <cstring>
#include <unordered_set>

#include "child_process.h"

namespace tarvex::test {
namespace {

using namespace platform;
using Window = std::uint64_t;  // any eight bytes in a file

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

/// Mostly short; the data of every seventh is longer than a page.
ManagedObject sampleOf(int number) {
    const auto seed = static_cast<std::uint64_t>(number);
    std::string text;
    for (int i = 0; i < (number % 7 == 6 ? 600 : 6); ++i)
        text += '<' + markOf(seed) + '>';
    const auto bytes = std::as_bytes(std::span(text));
    return {.id = Uuid{std::bit_cast<decltype(Uuid::bytes)>(std::array{mixed(seed), mixed(~seed)})},
            .timestamp = 1.7e9 + number + static_cast<double>(mixed(seed) % 999983) / 1e6,
            .type = "ambient_light",
            .data = std::vector(bytes.begin(), bytes.end())};
}

int numberOf(const ManagedObjectView& record) {
    if (!record.timestamp || !record.data) return -1;
    const int number = static_cast<int>(*record.timestamp - 1.7e9);
    const ManagedObject made = sampleOf(number);
    const bool same =
        made.timestamp == record.timestamp && made.type == record.type && std::ranges::equal(*made.data, *record.data);
    return same ? number : -1;
}

Window windowAt(const void* bytes) {
    Window window = 0;
    std::memcpy(&window, bytes, sizeof(window));
    return window;
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

void SampleStore::insert(int number) {
    *context().insertNewObject("DataEntry") = sampleOf(number);
}

std::expected<void, StoreError> SampleStore::addAll(const std::vector<int>& numbers) {
    std::ranges::for_each(numbers, [this](int number) { insert(number); });
    return context().save();
}

std::expected<std::vector<int>, StoreError> SampleStore::numbers() {
    std::vector<int> numbers;
    auto fetched = context().fetch(everySample, [&](const auto& record) {
        numbers.push_back(numberOf(record));
        return true;
    });
    if (!fetched) return std::unexpected(fetched.error());
    return numbers;
}

bool leavesTrace(const std::filesystem::path& directory, const std::vector<int>& numbers) {
    // As SQLite stores them: the identifiers' halves, the times, highest byte first, and the marks.
    std::unordered_set<Window> traces;
    for (const int number : numbers) {
        const ManagedObject sample = sampleOf(number);
        traces.insert({windowAt(sample.id->bytes.data()), windowAt(sample.id->bytes.data() + sizeof(Window)),
                       windowAt(sample.data->data() + 1), __builtin_bswap64(std::bit_cast<Window>(sample.timestamp))});
    }
    const int found = ChildProcess([&](int) { return anyFileHolds(directory, traces) ? 1 : 0; }).wait();
    if (found < 0) throw std::runtime_error("cannot look into " + directory.native());
    return found == 1;
}

std::string OtherProgram::run(const std::string& sql) {
    std::string result;
    const auto append = [](void* text, int, char** columns, char**) {
        static_cast<std::string*>(text)->append(columns[0]);
        return 0;
    };
    if (sqlite3_exec(database_, sql.c_str(), append, &result, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(database_));
    return result;
}

ReadOnlyDirectory::ReadOnlyDirectory(const std::filesystem::path& directory) : directory_(directory) {
    using std::filesystem::perms;
    constexpr uid_t nobody = 65534;
    bool done = geteuid() != 0 || chown(directory.c_str(), nobody, nobody) == 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        done = done && (geteuid() != 0 || chown(entry.path().c_str(), nobody, nobody) == 0);
        std::filesystem::permissions(entry.path(), perms::owner_read);
    }
    std::filesystem::permissions(directory, perms::owner_read | perms::owner_exec);
    if (!done || (geteuid() == 0 && setuid(nobody) != 0)) throw std::runtime_error("cannot give up root's rights");
}

ReadOnlyDirectory::~ReadOnlyDirectory() {
    using std::filesystem::perms;
    std::filesystem::permissions(directory_, perms::owner_all);
    for (const auto& entry : std::filesystem::directory_iterator(directory_))
        std::filesystem::permissions(entry.path(), perms::owner_read | perms::owner_write);
}

void fillStore(const std::filesystem::path& directory, const std::vector<int>& numbers) {
    SampleStore store(directory);
    if (!store.open() || !store.addAll(numbers)) throw std::runtime_error("cannot fill " + directory.native());
}

}  // namespace tarvex::test
