#include "platform/sqlite/sqlite_object_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include "child_process.h"
#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::SampleStore;
using SqliteObjectStoreTest = test::SampleStoreTest;
using Bytes = std::vector<std::byte>;
using Record = std::tuple<std::optional<double>, std::optional<std::string>, std::optional<Bytes>>;

Bytes bytes(std::string_view text) {
    const auto view = std::as_bytes(std::span(text));
    return {view.begin(), view.end()};
}

/// Copies, which outlive the callback.
std::vector<Record> recordsIn(ManagedObjectContext& context) {
    std::vector<Record> records;
    EXPECT_TRUE(context.fetch(SampleStore::everySample, [&](const ManagedObjectView& view) {
        records.emplace_back(view.timestamp, view.type, std::nullopt);
        if (view.data) std::get<2>(records.back()) = Bytes(view.data->begin(), view.data->end());
        return true;
    }));
    return records;
}

TEST(SqliteObjectStore, FitsOneObjectModel) {
    const SqliteObjectStore store({});
    EXPECT_TRUE(store.fitsModel(TARVEX_OBJECT_MODEL));
    const TemporaryDirectory directory;
    const auto file = directory.path() / "Model.momd";
    EXPECT_FALSE(store.fitsModel(file)) << "missing";
    EXPECT_FALSE(store.fitsModel(directory.path())) << "directory";
    for (const char* other : {"", "x", R"({"entities":[]})"}) {
        writeFile(file, *other == 'x' ? contentsOf(TARVEX_OBJECT_MODEL) + other : other);
        EXPECT_FALSE(store.fitsModel(file)) << other;
    }
}

TEST_F(SqliteObjectStoreTest, KeepsEveryValueAsItWas) {
    Uuid id;
    id.bytes.fill(0xA5);
    const std::vector<ManagedObject> objects{
        {id, 1.7e9 + 0.125, "distance", bytes("{\"lux\":1}")},
        {},
        {Uuid{}, std::numeric_limits<double>::infinity(), "", Bytes()},
        {id, 5e-324, std::string("nul \0 inside", 12), bytes(std::string_view("\0\xFF", 2))},
    };
    std::vector<Record> expected;
    for (const ManagedObject& object : objects) {
        *store.context().insertNewObject("DataEntry") = object;
        expected.emplace_back(object.timestamp, object.type, object.data);
    }
    EXPECT_EQ(recordsIn(store.context()), expected);
    EXPECT_TRUE(store.context().save());
    SampleStore reopened(directory.path());
    ASSERT_TRUE(reopened.open());
    EXPECT_EQ(recordsIn(reopened.context()), expected);
    const std::string first = "X'A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5'";
    EXPECT_EQ(test::OtherProgram(file).run("SELECT quote(id) FROM DataEntry"),
              first + "NULL" + "X'00000000000000000000000000000000'" + first);
}

TEST_F(SqliteObjectStoreTest, ReadsADamagedValueAsAbsent) {
    std::vector<Record> expected;
    test::OtherProgram other(file);
    for (const auto& [stored, read] : std::vector<std::pair<std::string, Record>>{
             {"NULL, NULL, NULL", {}},
             {"'text', x'00', 'text'", {}},
             {"x'00', x'00', 1", {}},
             {"7, CAST(x'FF41' AS TEXT), x''", {7.0, "\xFF\x41", Bytes()}},
             {"-9e999, '', 2.5", {-std::numeric_limits<double>::infinity(), "", std::nullopt}}}) {
        other.run("INSERT INTO DataEntry(timestamp, type, data) VALUES(" + stored + ")");
        expected.push_back(read);
    }
    EXPECT_EQ(recordsIn(store.context()), expected);
}

TEST_F(SqliteObjectStoreTest, KeepsOneEntity) {
    const FetchRequest other{"Other"};
    EXPECT_FALSE(store.context().insertNewObject("Other"));
    EXPECT_FALSE(store.context().count(other));
    EXPECT_FALSE(store.context().batchDelete(other));
    EXPECT_FALSE(store.context().fetch(other, [](const auto&) { return true; }));
}

TEST_F(SqliteObjectStoreTest, FetchesStoredThenPendingUntilTheVisitorHasEnough) {
    for (int number : {1, 2})
        ASSERT_TRUE(store.add(number));
    for (int number : {3, 4})
        store.insert(number);
    EXPECT_THAT(*store.numbers(), ElementsAre(1, 2, 3, 4));
    for (int enough = 1; enough <= 4; ++enough) {
        int visited = 0;
        EXPECT_TRUE(store.context().fetch(SampleStore::everySample, [&](const auto&) { return ++visited < enough; }));
        EXPECT_EQ(visited, enough);
    }
}

TEST(SqliteObjectStore, KeepsItsFilesPrivateWhateverTheUmask) {
    const auto expectPrivate = [](const std::filesystem::path& file) {
        for (const char* suffix : {"", "-wal", "-shm"})
            EXPECT_EQ(std::filesystem::status(file.native() + suffix).permissions(), std::filesystem::perms(0600));
    };
    for (const mode_t mask : {0U, 0777U}) {
        const TemporaryDirectory directory;
        const auto file = directory.path() / SampleStore::fileName;
        {
            SampleStore store(directory.path());
            const mode_t previous = umask(mask);
            const bool added = store.open() && store.add(1);
            umask(previous);
            ASSERT_TRUE(added);
            expectPrivate(file);
        }
        ASSERT_EQ(chmod(file.c_str(), 0644), 0) << "as one that was copied there";
        SampleStore store(directory.path());
        ASSERT_TRUE(store.open() && store.add(1));
        expectPrivate(file);
    }
}

TEST(SqliteObjectStore, LosesAndRepeatsNoSampleOfProcessesOfWhichSomeAreKilled) {
    constexpr int rounds = 10;
    const TemporaryDirectory directory;
    const auto addSamples = [&directory](int first, int last, int output) {
        SampleStore store(directory.path());
        if (!store.open()) return 2;
        std::int64_t previous = 0;
        for (int number = first; number != last; ++number) {
            if (!store.add(number) || write(output, &number, sizeof number) != sizeof number) return 3;
            const auto count = store.count();
            if (!count || *count <= previous) return 4;
            previous = *count;
        }
        return 0;
    };
    std::vector<int> acknowledged;
    for (int round = 0; round < rounds; ++round) {
        const int first = round * 300'000;
        test::ChildProcess killed([&](int output) { return addSamples(first, -1, output); });
        test::ChildProcess one([&](int output) { return addSamples(first + 100'000, first + 100'040, output); });
        test::ChildProcess other([&](int output) { return addSamples(first + 200'000, first + 200'040, output); });
        usleep(static_cast<useconds_t>(round * 3000));  // anywhere in its start, or between two samples
        killed.kill();
        for (test::ChildProcess* child : {&killed, &one, &other}) {
            for (int number = 0; read(child->output(), &number, sizeof number) == sizeof number;)
                acknowledged.push_back(number);
            EXPECT_EQ(child->wait(), child == &killed ? -1 : 0);
        }
    }
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    auto numbers = *store.numbers();
    EXPECT_EQ(store.count(), numbers.size());
    std::map<int, std::optional<int>> latest;
    for (const int number : numbers)
        EXPECT_LT(std::exchange(latest[number / 100'000], number), number) << "each process's in order, none twice";
    std::ranges::sort(numbers);
    EXPECT_TRUE(std::ranges::includes(numbers, acknowledged));
    EXPECT_LE(numbers.size(), acknowledged.size() + rounds) << "at most the one under way in a killed process";
}

}  // namespace
}  // namespace tarvex::platform
