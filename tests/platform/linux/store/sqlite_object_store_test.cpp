#include "platform/linux/store/sqlite_object_store.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cmath>
#include <fstream>
#include <limits>

#include "child_process.h"
#include "faulty_vfs.h"
#include "sample_store.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using test::ChildProcess;
using test::SampleStore;
using test::TemporaryDirectory;
using testing::ElementsAre;

const FetchRequest everySample{"DataEntry"};

std::vector<std::byte> bytes(std::string_view text) {
    const auto* first = reinterpret_cast<const std::byte*>(text.data());
    return {first, first + text.size()};
}

/// A copy that outlives the callback.
AttributeValue owned(const AttributeView& value) {
    if (const auto* text = std::get_if<std::string_view>(&value)) return std::string(*text);
    if (const auto* data = std::get_if<std::span<const std::byte>>(&value))
        return std::vector(data->begin(), data->end());
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* uuid = std::get_if<Uuid>(&value)) return *uuid;
    return std::monostate();
}

using Rows = std::vector<std::vector<AttributeValue>>;

Rows rowsOf(ManagedObjectContext& context) {
    Rows rows;
    EXPECT_TRUE(context.fetch(everySample, [&](std::span<const AttributeView> values) {
        rows.emplace_back();
        for (const AttributeView& value : values)
            rows.back().push_back(owned(value));
        return true;
    }));
    return rows;
}

unsigned modeOf(const std::filesystem::path& path) {
    struct stat status{};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

TEST(SqliteObjectStore, ReadsTheLibrarysOwnModel) {
    const SqliteObjectStore store({});
    const auto model = store.modelWithContentsOfFile(TARVEX_OBJECT_MODEL);
    EXPECT_TRUE(model && model->entities == test::sampleModel().entities);
}

TEST(SqliteObjectStore, HasNoModelForAMalformedFile) {
    const TemporaryDirectory directory;
    const SqliteObjectStore store({});
    const auto file = directory.path() / "Broken.momd";
    EXPECT_FALSE(store.modelWithContentsOfFile(file)) << "missing";
    EXPECT_FALSE(store.modelWithContentsOfFile(directory.path())) << "directory";

    const std::string a = R"({"name": "a", "type": "uuid", "optional": true})";
    const auto model = [](std::string_view attributes, std::string_view name = R"("name": "E",)") {
        return std::string(R"({"entities": [{)").append(name).append(R"("attributes": [)").append(attributes) + "]}]}";
    };
    std::string twice = R"({"entities": [{"name": "E", "attributes": [)";
    twice.append(a).append(R"(]}, {"name": "e", "attributes": [)").append(a).append("]}]}");
    const auto write = [&](const std::string& text) { std::ofstream(file) << text; };
    write(model(a));
    EXPECT_TRUE(store.modelWithContentsOfFile(file)) << "what the cases below break";
    for (const std::string& text : {std::string(),
                                    std::string("{"),
                                    std::string("[]"),
                                    std::string("{}"),
                                    std::string(R"({"entities": []})"),
                                    std::string(R"({"entities": [1]})"),
                                    std::string(R"({"entities": [{"name": "E"}]})"),
                                    model(""),
                                    model("1"),
                                    R"({"entities": [{"attributes": [)" + a + "]}]}",
                                    R"({"entities": [{"name": "sqlite_E", "attributes": [)" + a + "]}]}",
                                    R"({"entities": [{"name": "E\"; DROP", "attributes": [)" + a + "]}]}",
                                    twice,
                                    model(std::string(a).append(",").append(a)),
                                    model(R"({"name": "", "type": "uuid", "optional": true})"),
                                    model(R"({"name": "1a", "type": "uuid", "optional": true})"),
                                    model(R"({"name": "Seq", "type": "uuid", "optional": true})"),
                                    model(R"({"name": "a", "type": "date", "optional": true})"),
                                    model(R"({"name": "a", "optional": true})"),
                                    model(R"({"name": "a", "type": "uuid"})"),
                                    model(R"({"name": "a", "type": "uuid", "optional": 1})"),
                                    model(a) + "x"}) {
        write(text);
        EXPECT_FALSE(store.modelWithContentsOfFile(file)) << text;
    }
}

TEST(SqliteObjectStore, KeepsEveryValueAsItWas) {
    const TemporaryDirectory directory;
    Uuid id;
    id.bytes.fill(0xA5);
    const Rows rows{
        {id, 1.7e9 + 0.125, "distance", bytes("{\"lux\":1}")},
        {std::monostate(), 0.0, std::monostate(), std::monostate()},
        {Uuid{}, std::numeric_limits<double>::infinity(), "", std::vector<std::byte>()},
        {id, 5e-324, std::string("nul \0 inside", 12), bytes(std::string_view("\0\xFF", 2))},
    };
    for (const bool reopened : {false, true}) {
        SCOPED_TRACE(reopened ? "reopened" : "pending");
        SampleStore store(directory.path());
        ASSERT_TRUE(store.open());
        if (!reopened)
            for (const auto& row : rows)
                store.context().insertNewObject("DataEntry")->values = row;
        EXPECT_EQ(rowsOf(store.context()), rows);
        EXPECT_EQ(store.count(), 4);
        EXPECT_TRUE(store.context().save());
    }
}

TEST(SqliteObjectStore, StartsAnObjectWithoutValuesButZeroForANumber) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_THAT(store.context().insertNewObject("DataEntry")->values,
                ElementsAre(AttributeValue(), AttributeValue(0.0), AttributeValue(), AttributeValue()));
}

TEST(SqliteObjectStore, RefusesAnEntityThatTheModelLacks) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    const FetchRequest unknown{"Other"};
    EXPECT_FALSE(store.context().insertNewObject("Other"));
    EXPECT_FALSE(store.context().count(unknown));
    EXPECT_FALSE(store.context().batchDelete(unknown));
    EXPECT_FALSE(store.context().fetch(unknown, [](auto) { return true; }));
}

TEST(SqliteObjectStore, FetchesStoredThenPendingUntilTheVisitorHasEnough) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    for (int number : {1, 2})
        ASSERT_TRUE(store.add(number));
    for (int number : {3, 4})
        store.insert(number);
    EXPECT_THAT(*store.numbers(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(store.count(), 4);
    for (int enough = 1; enough <= 4; ++enough) {
        int visited = 0;
        EXPECT_TRUE(store.context().fetch(everySample, [&](auto) { return ++visited < enough; }));
        EXPECT_EQ(visited, enough);
    }
}

TEST(SqliteObjectStore, CommitsWithOneSync) {
    const TemporaryDirectory directory;
    test::FaultyVfs vfs;
    SampleStore store(directory.path(), vfs.name());
    ASSERT_TRUE(store.open());
    ASSERT_TRUE(store.add(0));
    const int before = vfs.syncs();
    for (int number = 1; number <= 100; ++number)
        ASSERT_TRUE(store.add(number));
    EXPECT_EQ(vfs.syncs() - before, 100);
    for (int number = 101; number <= 200; ++number)
        store.insert(number);
    ASSERT_TRUE(store.context().save());
    ASSERT_TRUE(store.context().save()) << "nothing is pending";
    EXPECT_EQ(vfs.syncs() - before, 101);
}

TEST(SqliteObjectStore, ReadsADamagedValueAsAbsent) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    const AttributeValue absent;
    struct Case {
        const char* stored;
        std::vector<AttributeValue> read;
    };
    const std::vector<Case> cases{
        {"NULL, NULL, NULL, NULL", {absent, absent, absent, absent}},
        {"'text', 'text', x'00', 'text'", {absent, absent, absent, absent}},
        {"x'00', x'00', x'00', 1", {absent, absent, absent, absent}},
        {"x'0011223344556677889900112233445566', 7, CAST(x'FF41' AS TEXT), x''",
         {absent, 7.0, "\xFF\x41", std::vector<std::byte>()}},
        {"1.5, -9e999, '', 2.5", {absent, -std::numeric_limits<double>::infinity(), "", absent}},
    };
    Rows expected;
    for (const Case& c : cases) {
        test::runSql(directory.path(),
                     std::string("INSERT INTO DataEntry(id, timestamp, type, data) VALUES(") + c.stored + ")");
        expected.push_back(c.read);
    }
    EXPECT_EQ(rowsOf(store.context()), expected);
}

TEST(SqliteObjectStore, BoundsTheBytesOfAllRecords) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    std::size_t taken = 0;
    for (const bool saved : {true, false}) {
        for (int number = 0; number < 100; ++number) {
            const auto object = store.context().insertNewObject("DataEntry");
            object->values[2] = std::string(100, 'x');
            object->values[3] = bytes(std::string(900, 'y'));
            taken += 16 + 8 + 100 + 900;
        }
        EXPECT_GE(store.context().fetchSizeBound(everySample), taken) << saved;
        ASSERT_TRUE(!saved || store.context().save());
    }
    EXPECT_LE(store.context().fetchSizeBound(everySample), 2 * taken);
}

TEST(SqliteObjectStore, DeletesWhatIsStoredAndNotWhatIsPending) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_TRUE(store.removeAll()) << "nothing there";
    EXPECT_EQ(store.count(), 0);
    for (int number : {1, 2, 3})
        ASSERT_TRUE(store.add(number));
    store.insert(4);
    EXPECT_TRUE(store.removeAll());
    EXPECT_EQ(store.count(), 1);
    EXPECT_THAT(*store.numbers(), ElementsAre(4));
    EXPECT_TRUE(store.add(5));
    EXPECT_THAT(*store.numbers(), ElementsAre(4, 5));
    EXPECT_EQ(store.count(), 2);
}

TEST(SqliteObjectStore, KeepsItsFilesPrivateWhateverTheUmask) {
    for (const mode_t mask : {0U, 0777U}) {
        const TemporaryDirectory directory;
        SampleStore store(directory.path());
        const mode_t previous = umask(mask);
        const auto opened = store.open();
        const auto added = store.add(1);
        umask(previous);
        ASSERT_TRUE(opened && added);
        for (const char* suffix : {"", "-wal", "-shm"})
            EXPECT_EQ(modeOf(directory.path() / (std::string(SampleStore::fileName) + suffix)), 0600U) << suffix;
    }
}

TEST(SqliteObjectStore, SharesItsFileBetweenProcessesThatStartAtOnce) {
    constexpr int processes = 4;
    constexpr int samples = 40;
    const TemporaryDirectory directory;
    std::vector<std::unique_ptr<ChildProcess>> children;
    children.reserve(processes);
    for (int child = 0; child < processes; ++child) {
        children.push_back(std::make_unique<ChildProcess>([&, child](int) {
            SampleStore store(directory.path());
            if (!store.open()) return 2;
            std::int64_t last = 0;
            for (int i = 0; i < samples; ++i) {
                if (!store.add(child * samples + i)) return 3;
                const auto count = store.count();
                if (!count || *count <= last) return 4;
                last = *count;
            }
            return 0;
        }));
    }
    for (auto& child : children)
        EXPECT_EQ(child->wait(), 0);

    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_EQ(store.count(), processes * samples);
    const auto numbers = store.numbers();
    ASSERT_TRUE(numbers);
    for (int child = 0; child < processes; ++child) {
        std::vector<int> own;
        std::ranges::copy_if(*numbers, std::back_inserter(own), [&](int n) { return n / samples == child; });
        ASSERT_EQ(own.size(), samples);
        EXPECT_TRUE(std::ranges::is_sorted(own));
    }
}

}  // namespace
}  // namespace tarvex::platform
