#include "platform/sqlite/sqlite_object_store.h"

#include <sys/stat.h>

#include "child_process.h"
#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::SampleStore;
using SqliteObjectStoreTest = test::SampleStoreTest;
using Rows = std::vector<std::vector<AttributeValue>>;

const FetchRequest everySample{"DataEntry", {}};

std::vector<std::byte> bytes(std::string_view text) {
    const auto view = std::as_bytes(std::span(text));
    return {view.begin(), view.end()};
}

/// A copy that outlives the callback.
AttributeValue owned(const AttributeView& value) {
    return std::visit(
        []<typename View>(const View& view) -> AttributeValue {
            if constexpr (std::ranges::range<View>)
                return std::conditional_t<std::is_same_v<View, std::string_view>, std::string, std::vector<std::byte>>(
                    view.begin(), view.end());
            else
                return view;
        },
        value);
}

Rows rowsOf(ManagedObjectContext& context) {
    Rows rows;
    EXPECT_TRUE(context.fetch(everySample, [&](std::span<const AttributeView> values) {
        std::ranges::transform(values, std::back_inserter(rows.emplace_back()), owned);
        return true;
    }));
    return rows;
}

TEST(ObjectModel, IsReadOnlyFromAWellFormedFile) {
    const SqliteObjectStore store({});
    const auto own = store.modelWithContentsOfFile(TARVEX_OBJECT_MODEL);
    EXPECT_TRUE(own && own->entities == test::sampleModel().entities);

    const TemporaryDirectory directory;
    const auto file = directory.path() / "Model.momd";
    EXPECT_FALSE(store.modelWithContentsOfFile(file)) << "missing";
    EXPECT_FALSE(store.modelWithContentsOfFile(directory.path())) << "directory";

    const std::string attribute = R"({"name": "a", "type": "uuid", "optional": true})";
    const std::string entity = R"({"name": "E", "attributes": [)" + attribute + "]}";
    const std::string model = R"({"entities": [)" + entity + "]}";
    const auto isRead = [&](const std::string& text) {
        writeFile(file, text);
        return store.modelWithContentsOfFile(file).has_value();
    };
    EXPECT_TRUE(isRead(model)) << "what the cases below break";
    using Case = std::pair<std::string, std::string>;
    for (const auto& [part, replacement] :
         {Case{model, ""}, Case{model, "{}"}, Case{model, model + "x"}, Case{entity, ""},
          Case{entity, R"({"name": "E"})"},
          Case{entity, entity + R"(, {"name": "e", "attributes": [)" + attribute + "]}"}, Case{"E", R"(E\"; DROP)"},
          Case{attribute, attribute + "," + attribute}, Case{R"("a")", R"("Seq")"}, Case{"uuid", "date"},
          Case{R"(, "optional": true)", ""}, Case{"true", "1"}}) {
        std::string broken = model;
        broken.replace(broken.find(part), part.size(), replacement);
        EXPECT_FALSE(isRead(broken)) << broken;
    }
}

TEST_F(SqliteObjectStoreTest, KeepsEveryValueAsItWas) {
    Uuid id;
    id.bytes.fill(0xA5);
    const Rows rows{
        {id, 1.7e9 + 0.125, "distance", bytes("{\"lux\":1}")},
        {std::monostate(), 0.0, std::monostate(), std::monostate()},  // as it is made
        {Uuid{}, std::numeric_limits<double>::infinity(), "", std::vector<std::byte>()},
        {id, 5e-324, std::string("nul \0 inside", 12), bytes(std::string_view("\0\xFF", 2))},
    };
    for (const auto& row : rows) {
        const auto object = store.context().insertNewObject("DataEntry");
        if (&row == &rows[1])
            EXPECT_EQ(object->values, row);
        else
            object->values = row;
    }
    EXPECT_EQ(rowsOf(store.context()), rows);
    EXPECT_TRUE(store.context().save());
    SampleStore reopened(directory.path());
    ASSERT_TRUE(reopened.open());
    EXPECT_EQ(rowsOf(reopened.context()), rows);
}

TEST_F(SqliteObjectStoreTest, RefusesAnEntityThatTheModelLacks) {
    const FetchRequest unknown{"Other", {}};
    EXPECT_FALSE(store.context().insertNewObject("Other"));
    EXPECT_FALSE(store.context().count(unknown));
    EXPECT_FALSE(store.context().batchDelete(unknown));
    EXPECT_FALSE(store.context().fetch(unknown, [](auto) { return true; }));
}

TEST_F(SqliteObjectStoreTest, FetchesStoredThenPendingUntilTheVisitorHasEnough) {
    for (int number : {1, 2})
        ASSERT_TRUE(store.add(number));
    for (int number : {3, 4})
        store.insert(number);
    EXPECT_THAT(*store.numbers(), ElementsAre(1, 2, 3, 4));
    for (int enough = 1; enough <= 4; ++enough) {
        int visited = 0;
        EXPECT_TRUE(store.context().fetch(everySample, [&](auto) { return ++visited < enough; }));
        EXPECT_EQ(visited, enough);
    }
}

TEST_F(SqliteObjectStoreTest, CommitsWithOneSync) {
    ASSERT_TRUE(store.add(0));
    const int before = vfs.syncs();
    for (int number = 1; number <= 100; ++number)
        ASSERT_TRUE(store.add(number));
    EXPECT_EQ(vfs.syncs() - before, 100);
    ASSERT_TRUE(store.addAll(test::range(101, 100)));
    ASSERT_TRUE(store.context().save()) << "nothing is pending";
    EXPECT_EQ(vfs.syncs() - before, 101);
}

TEST_F(SqliteObjectStoreTest, ReadsADamagedValueAsAbsent) {
    const AttributeValue absent;
    Rows expected;
    test::OtherProgram other(directory.path() / SampleStore::fileName);
    for (const auto& [stored, read] : std::vector<std::pair<std::string, std::vector<AttributeValue>>>{
             {"NULL, NULL, NULL, NULL", {absent, absent, absent, absent}},
             {"'text', 'text', x'00', 'text'", {absent, absent, absent, absent}},
             {"x'00', x'00', x'00', 1", {absent, absent, absent, absent}},
             {"x'0011223344556677889900112233445566', 7, CAST(x'FF41' AS TEXT), x''",
              {absent, 7.0, "\xFF\x41", std::vector<std::byte>()}},
             {"1.5, -9e999, '', 2.5", {absent, -std::numeric_limits<double>::infinity(), "", absent}}}) {
        other.run("INSERT INTO DataEntry(id, timestamp, type, data) VALUES(" + stored + ")");
        expected.push_back(read);
    }
    EXPECT_EQ(rowsOf(store.context()), expected);
}

TEST_F(SqliteObjectStoreTest, BoundsTheBytesOfAllRecords) {
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

TEST_F(SqliteObjectStoreTest, DeletesWhatIsStoredAndNotWhatIsPending) {
    EXPECT_TRUE(store.removeAll()) << "nothing there";
    EXPECT_EQ(store.count(), 0);
    ASSERT_TRUE(store.addAll({1, 2, 3}));
    store.insert(4);
    EXPECT_TRUE(store.removeAll());
    EXPECT_EQ(store.count(), 1);
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
        for (const char* suffix : {"", "-wal", "-shm"}) {
            struct stat status{};
            EXPECT_EQ(stat((directory.path() / SampleStore::fileName).concat(suffix).c_str(), &status), 0) << suffix;
            EXPECT_EQ(status.st_mode & 07777U, 0600U) << suffix;
        }
    }
    // One that was copied there loses other users' permissions.
    const TemporaryDirectory directory;
    const auto file = directory.path() / SampleStore::fileName;
    {
        ASSERT_TRUE(SampleStore(directory.path()).open());
    }
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open() && store.add(1));
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(file.native() + "-wal").permissions(), std::filesystem::perms(0600));
}

TEST(SqliteObjectStore, SharesItsFileBetweenProcessesThatStartAtOnce) {
    constexpr int samples = 40;
    const TemporaryDirectory directory;
    std::deque<test::ChildProcess> children;
    for (int child = 0; child < 4; ++child) {
        children.emplace_back([&, child](int) {
            SampleStore store(directory.path());
            if (!store.open()) return 2;
            std::int64_t last = 0;
            for (int number : test::range(child * samples, samples)) {
                if (!store.add(number)) return 3;
                const auto count = store.count();
                if (!count || *count <= last) return 4;
                last = *count;
            }
            return 0;
        });
    }
    for (auto& child : children)
        EXPECT_EQ(child.wait(), 0);

    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    auto numbers = *store.numbers();
    EXPECT_EQ(store.count(), numbers.size());
    std::ranges::stable_sort(numbers, {}, [](int number) { return number / samples; });
    EXPECT_EQ(numbers, test::range(0, 4 * samples)) << "all are there, each process's in its order";
}

}  // namespace
}  // namespace tarvex::platform
