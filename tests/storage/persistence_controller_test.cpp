#include "storage/persistence_controller.h"

#include <unistd.h>

#include <csignal>

#include "child_process.h"
#include "platform/sqlite/sample_store.h"
#include "prelude.h"
#include "scripted_object_store.h"
#include "sleeping_thread.h"
#include "tarvex/data_entry.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using namespace std::string_literals;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;

// Stored as another version of the library, or a damaged disk, might have left it.
struct ForeignRecord {
    std::optional<std::string> type;
    std::optional<std::string> data;
    double timestamp = 5;
};

class PersistenceControllerTest : public ::testing::Test {
protected:
    void storeSample(double lux) { store.saveTrackingData(DataReader::ambientLight(9), {{"lux", lux}}); }

    std::unique_ptr<platform::PersistentContainer> openContainer(std::string_view name) {
        auto container = platform->objectStore().makeContainer(name);
        EXPECT_TRUE(container->loadPersistentStores().has_value());
        return container;
    }

    void storeForeign(const std::vector<ForeignRecord>& records) {
        const auto container = openContainer("TrackingDataContainer");
        for (const ForeignRecord& record : records) {
            DataEntry entry(container->viewContext());
            entry.setTimestamp(record.timestamp);
            entry.setType(record.type);
            if (!record.data) continue;
            const auto bytes = std::as_bytes(std::span(*record.data));
            entry.setData(DataEntry::Bytes(bytes.begin(), bytes.end()));
        }
        ASSERT_TRUE(container->viewContext().save().has_value());
    }

    // The samples that another process would upload: none that is pending.
    std::vector<TrackingData> committed() const {
        PersistenceController other(*platform);
        return test::documentOf(other).trackingData;
    }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    const std::filesystem::path file = platform.directory.path() / "data/TrackingDataContainer.sqlite";
};

std::optional<Sender> anySender() {
    return Sender();
}

// Holds the store's write lock, as another process in a long transaction would.
auto lockForWriting(const std::filesystem::path& file) {
    auto program = std::make_unique<test::OtherProgram>(file);
    program->beginToWrite();
    return program;
}

MATCHER_P(HasLux, lux, "") {
    return arg.data == ValueMap{{"lux", lux}};
}

}  // namespace

TEST_F(PersistenceControllerTest, StoresEachFiniteSampleAsARecordOfItsOwn) {
    CaptureStdout();
    for (const double number : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        storeSample(number);
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(store.countTrackingData(), 0);
    platform.clock->set(1700000000.1234567);
    store.saveTrackingData(DataReader::distance(99), {{"leftEyeDistanceFromCamera", 50.0}});
    platform.clock->set(1700000001.5);
    storeSample(7);
    const auto records = committed();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].type, "distance") << "the rate plays no part";
    EXPECT_EQ(records[0].data, (ValueMap{{"leftEyeDistanceFromCamera", 50}}));
    EXPECT_EQ(records[0].timestamp, 1700000000.1234567) << "every bit of it";
    EXPECT_EQ(records[1].type, "ambient_light");
    EXPECT_EQ(records[1].timestamp, 1700000001.5);
    EXPECT_EQ(test::OtherProgram(file).run("SELECT count(DISTINCT id) FROM DataEntry"), "2");
    store.deleteAllTrackingData();
    const auto anyByteIsLeft = [&](int) {
        return (contentsOf(file) + contentsOf(file.native() + "-wal")).contains("leftEye") ? 1 : 0;
    };
    EXPECT_EQ(test::ChildProcess(anyByteIsLeft).wait(), 0);
    EXPECT_EQ(store.countTrackingData(), 0);
}

TEST_F(PersistenceControllerTest, KeepsASamplePendingWhenItsCommitFails) {
    storeSample(1);
    auto lock = lockForWriting(file);
    CaptureStdout();
    storeSample(2);
    const std::string line = GetCapturedStdout();
    EXPECT_TRUE(line.starts_with("[ ERROR ] Could not save data ")) << line;
    EXPECT_EQ(std::ranges::count(line, '\n'), 1);
    EXPECT_THAT(line, HasSubstr("locked"));
    EXPECT_EQ(store.countTrackingData(), 2) << "stored and pending";
    EXPECT_THAT(test::documentOf(store).trackingData, ElementsAre(HasLux(1), HasLux(2)));
    EXPECT_THAT(committed(), ElementsAre(HasLux(1)));
    lock.reset();
    EXPECT_THAT(test::documentOf(store).trackingData, SizeIs(2));
    EXPECT_THAT(committed(), ElementsAre(HasLux(1), HasLux(2))) << "a share tries again";
    storeSample(3);
    EXPECT_THAT(committed(), ElementsAre(HasLux(1), HasLux(2), HasLux(3))) << "in the order of sampling, none twice";
}

TEST_F(PersistenceControllerTest, ADeletionLeavesPendingSamples) {
    storeSample(1);
    auto lock = lockForWriting(file);
    storeSample(2);
    store.deleteAllTrackingData();
    EXPECT_EQ(store.countTrackingData(), 2) << "the deletion failed, silently";
    lock.reset();
    store.deleteAllTrackingData();
    EXPECT_EQ(store.countTrackingData(), 1);
    EXPECT_THAT(committed(), IsEmpty()) << "deleting does not commit what is pending";
    store.saveChanges();
    EXPECT_THAT(committed(), ElementsAre(HasLux(2)));
}

TEST_F(PersistenceControllerTest, ASampleWaitsNeitherForADeletionNorForAnUpload) {
    std::vector<std::string> operations;  // one at a time, under the store's lock
    const auto whileATickComes = [&](const char* name) {
        return [&, name] {
            operations.emplace_back(name);
            std::jthread([this] { storeSample(1); }).join();
        };
    };
    platform->setObjectStore(std::make_unique<test::ScriptedObjectStore>(
        test::ScriptedObjectStore::Script{.save = [&] { operations.emplace_back("save"); },
                                          .fetch = whileATickComes("fetch"),
                                          .batchDelete = whileATickComes("delete")}));
    store.deleteAllTrackingData();
    store.savePending();
    EXPECT_TRUE(store.loadTrackingData([&] { return whileATickComes("sender")(), Sender(); }));
    EXPECT_THAT(operations, ElementsAre("delete", "save", "fetch", "sender", "save"));
}

TEST_F(PersistenceControllerTest, StoresNothingIntoFilesThatWereRemovedOrReplaced) {
    const auto data = file.parent_path();
    const auto backup = data.native() + ".backup";
    const auto remove = [&] { std::filesystem::remove_all(data); };
    const auto removeFiles = [&] {
        for (const char* suffix : {"", "-wal", "-shm"})
            std::filesystem::remove(file.native() + suffix);
    };
    const auto replace = [&] {
        remove();
        std::filesystem::copy(backup, data);
    };
    using Case = std::pair<std::function<void()>, std::vector<double>>;
    for (const auto& [happens, found] : {Case{remove, {3}}, Case{replace, {1, 3}}, Case{removeFiles, {3}}}) {
        remove();
        storeSample(1);
        std::filesystem::remove_all(backup);
        std::filesystem::copy(data, backup);
        storeSample(2);
        happens();
        CaptureStdout();
        storeSample(3);
        EXPECT_THAT(GetCapturedStdout(), ::testing::StartsWith("[ ERROR ] Could not save data file was removed"));
        std::vector<double> stored;
        for (const TrackingData& sample : committed())
            stored.push_back(sample.data.at("lux"));
        EXPECT_EQ(stored, found);
        happens();
        EXPECT_THAT(test::documentOf(store).trackingData, SizeIs(found.size() - 1));
        EXPECT_EQ(store.countTrackingData(), found.size() - 1);
    }
}

TEST_F(PersistenceControllerTest, ReportsAFailedCommitWithoutTheHostsStreamsAndSignals) {
    storeSample(1);
    const auto lock = lockForWriting(file);
    std::array<int, 2> ends{};
    const int output = dup(STDOUT_FILENO);
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    std::signal(SIGPIPE, SIG_DFL);
    dup2(ends[1], STDOUT_FILENO);
    storeSample(2);  // SIGPIPE would end the process
    dup2(output, STDOUT_FILENO);
    sigset_t signals;
    sigpending(&signals);
    EXPECT_EQ(sigismember(&signals, SIGPIPE), 0);
    EXPECT_TRUE(std::cout.good());
    EXPECT_EQ(store.countTrackingData(), 2);
}

TEST(PersistenceController, WritesWhatIsPendingWhenTheProcessExits) {
    const TemporaryDirectory directory;
    const auto file = directory.path() / "data/TrackingDataContainer.sqlite";
    const auto sampleAndExit = [&](int) -> int {
        if (!platform::Platform::install(platform::Platform::makeLinux({.dataDirectory = file.parent_path()})))
            return 1;
        PersistenceController& store = PersistenceController::shared();
        store.saveTrackingData(DataReader::ambientLight(1), {{"lux", 1}});
        auto lock = lockForWriting(file);
        store.saveTrackingData(DataReader::ambientLight(1), {{"lux", 2}});
        lock.reset();
        std::exit(0);
    };
    ASSERT_EQ(test::ChildProcess(sampleAndExit).wait(), 0);
    test::OtherProgram store(file);
    EXPECT_EQ(store.run("SELECT count(*) FROM DataEntry"), "2");
}

TEST_F(PersistenceControllerTest, TakesSamplesFromSeveralThreadsBesideDeletionsAndUploads) {
    const auto storeAll = [this] {
        for (int i = 0; i < 40; ++i)
            storeSample(i);
    };
    {
        const std::jthread one(storeAll);
        const std::jthread other(storeAll);
        for (int i = 0; i < 5; ++i)
            EXPECT_TRUE(store.loadTrackingData(anySender).has_value());
    }
    EXPECT_EQ(store.countTrackingData(), 80);
    std::jthread([this] { store.deleteAllTrackingData(); }).join();
    EXPECT_EQ(store.countTrackingData(), 0);
}

TEST(FairMutex, GoesToTheThreadThatWaitsBeforeTheOneThatReleasedIt) {
    for (int round = 0; round < 50; ++round) {  // the one that waits may also be lucky
        FairMutex mutex;
        bool hadIt = false;
        mutex.lock();
        const test::SleepingThread other([&] {
            const std::lock_guard lock(mutex);
            hadIt = true;
        });
        mutex.unlock();
        const std::lock_guard lock(mutex);
        EXPECT_TRUE(hadIt);
    }
}

TEST_F(PersistenceControllerTest, NamesTheInstallationTheDeviceAndTheApplicationInAnUpload) {
    const TrackingDataWrapper first = test::documentOf(store);
    EXPECT_EQ(first.userId, platform.defaults->stringForKey("userID"));
    EXPECT_THAT(first.device, MatchesRegex("[ -~]+"));
    EXPECT_EQ(first.applicationIdentifier, "unknown");
    EXPECT_THAT(first.trackingData, IsEmpty());

    platform.writeInfoPlist("<key>CFBundleIdentifier</key><string>org.example.study</string>");
    const TrackingDataWrapper second = test::documentOf(store);
    EXPECT_EQ(second.applicationIdentifier, "org.example.study");
    EXPECT_EQ(second.userId, first.userId);
}

TEST_F(PersistenceControllerTest, LeavesRecordsOutOfAnUploadThatCannotBeRead) {
    storeForeign({{"good", R"({"lux":1})"},
                  {std::nullopt, R"({"lux":2})"},
                  {"no data", std::nullopt},
                  {"type is not UTF-8 \xFF", R"({"lux":3})"},
                  {"empty", ""},
                  {"array", "[1]"},
                  {"not a number", R"({"lux":"4"})"},
                  {"truncated", R"({"lux":5)"},
                  {"trailing", "{\"lux\":6}\0"s},
                  {"not UTF-8", "{\"\xFF\":7}"},
                  {"infinite", R"({"lux":1e999})"},
                  {"no time", R"({"lux":10})"},
                  {"quote\"d", R"({ "lux": 8, "lux": 9 })"}});
    test::OtherProgram(file).run("UPDATE DataEntry SET timestamp = NULL WHERE type = 'no time'");
    const TrackingDataWrapper document = test::documentOf(store);
    EXPECT_THAT(document.trackingData, ElementsAre(HasLux(1), HasLux(9))) << "of one name's members the last counts";
    EXPECT_EQ(document.trackingData[1].type, "quote\"d");
    EXPECT_EQ(store.countTrackingData(), 13) << "they stay stored";
    storeForeign({{"t", R"({})", std::numeric_limits<double>::infinity()}});
    EXPECT_FALSE(store.loadTrackingData(anySender).has_value()) << "a time that is not finite";
}

TEST_F(PersistenceControllerTest, ReservesEnoughForADocumentOfTheSmallestRecords) {
    storeForeign(std::vector<ForeignRecord>(2000, {.type = "", .data = "{}", .timestamp = 1700000000.1234567}));
    const auto container = openContainer("TrackingDataContainer");
    const std::size_t size = store.loadTrackingData(anySender).value().size();
    const std::size_t bound = container->viewContext().fetchSizeBound(DataEntry::fetchRequest());
    EXPECT_TRUE(bound >= size && bound < 4 * size) << bound << " for " << size;
    for (int i = 0; i < 2000; ++i)
        DataEntry(container->viewContext()).setType("t");
    EXPECT_GE(container->viewContext().fetchSizeBound(DataEntry::fetchRequest()), bound + size);
}

TEST_F(PersistenceControllerTest, NeedsNoSenderWhenTheFetchFails) {
    platform->setObjectStore(std::make_unique<test::ScriptedObjectStore>());
    bool asked = false;
    EXPECT_FALSE(store.loadTrackingData([&] { return asked = true, Sender(); }).has_value());
    EXPECT_FALSE(asked);
    EXPECT_EQ(store.countTrackingData(), std::nullopt);
    store.deleteAllTrackingData();
}

using PersistenceControllerDeathTest = PersistenceControllerTest;

TEST_F(PersistenceControllerDeathTest, StopsTheProcessWhenTheStoreCannotBeOpened) {
    writeFile(file, std::string(4096, 'x'));
    EXPECT_DEATH(store.countTrackingData(),
                 "Fatal error: Unresolved error .*TrackingDataContainer\\.sqlite.*, .*: file PersistenceController");
    EXPECT_EQ(std::filesystem::file_size(file), 4096U) << "nothing is moved or deleted";
}

TEST_F(PersistenceControllerDeathTest, StopsTheProcessWithoutItsObjectModel) {
    struct NoResources final : platform::Bundles {
        const platform::Bundle& mainBundle() const override { std::abort(); }
        const platform::Bundle* bundleWithIdentifier(std::string_view) const override { return nullptr; }
        std::unique_ptr<platform::PropertyListDictionary> dictionaryWithContentsOfFile(
            const std::filesystem::path&) const override {
            return nullptr;
        }
    };
    constexpr const char* line = "Fatal error: Unresolved error: file PersistenceController";
    platform->setObjectStore(
        std::make_unique<test::ScriptedObjectStore>(test::ScriptedObjectStore::Script{.fitsModel = false}));
    EXPECT_DEATH(storeSample(1), line) << "another model";
    platform->setObjectStore(std::make_unique<test::ScriptedObjectStore>());
    platform->setBundles(std::make_unique<NoResources>());
    EXPECT_DEATH(storeSample(1), line) << "no model";
}

TEST_F(PersistenceControllerTest, ADataEntryIsAHandleToAPendingObject) {
    const auto container = openContainer("Other");
    DataEntry entry(container->viewContext());
    const auto values = [&] { return std::tuple(entry.id(), entry.timestamp(), entry.type(), entry.data()); };
    EXPECT_EQ(values(), std::tuple(std::nullopt, 0, std::nullopt, std::nullopt));
    const Uuid id = Uuid::random();
    entry.setId(id);
    entry.setTimestamp(1.5);
    entry.setType("t");
    entry.setData(DataEntry::Bytes{std::byte{1}});
    EXPECT_EQ(values(), std::tuple(id, 1.5, "t", DataEntry::Bytes{std::byte{1}}));
    entry.setType(std::nullopt);
    EXPECT_EQ(entry.type(), std::nullopt);
    EXPECT_EQ(container->viewContext().count(DataEntry::fetchRequest()).value(), 1);
}

}  // namespace tarvex
