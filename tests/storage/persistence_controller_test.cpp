#include "storage/persistence_controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tarvex/data_entry.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using ::testing::HasSubstr;

struct StoredRecord {
    std::optional<Uuid> id;
    double timestamp = 0;
    std::string type;
    std::string data;
};

class PersistenceControllerTest : public ::testing::Test {
protected:
    void storeSample(double lux) { store.saveTrackingData(DataReader::ambientLight(9), {{"lux", lux}}); }

    std::filesystem::path storeFile() const { return platform.directory.path() / "data/TrackingDataContainer.sqlite"; }

    // What a second connection sees.
    std::vector<StoredRecord> storedRecords() const {
        const auto other = platform::Platform::makeLinux({.dataDirectory = platform.directory.path() / "data"});
        platform::ObjectStore& objects = other->objectStore();
        const auto container = objects.makeContainer("TrackingDataContainer", {{DataEntry::entityDescription()}});
        EXPECT_TRUE(container->loadPersistentStores().has_value());
        std::vector<StoredRecord> records;
        const auto fetched = container->viewContext().fetch(DataEntry::fetchRequest(), [&](auto values) {
            const auto data = std::get<std::span<const std::byte>>(values[3]);
            records.push_back({.id = std::get<Uuid>(values[0]),
                               .timestamp = std::get<double>(values[1]),
                               .type = std::string(std::get<std::string_view>(values[2])),
                               .data = std::string(reinterpret_cast<const char*>(data.data()), data.size())});
            return true;
        });
        EXPECT_TRUE(fetched.has_value());
        return records;
    }

    test::TestPlatform platform;
    PersistenceController store{*platform};
};

// Holds the store's write lock, as another process in a long transaction would.
class WriteLock {
public:
    explicit WriteLock(const std::filesystem::path& file) {
        EXPECT_EQ(sqlite3_open(file.c_str(), &connection_), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(connection_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    }
    ~WriteLock() { sqlite3_close(connection_); }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

private:
    sqlite3* connection_ = nullptr;
};

}  // namespace

TEST_F(PersistenceControllerTest, StoresEachSampleAsARecordOfItsOwn) {
    platform.clock->set(1700000000.25);
    store.saveTrackingData(DataReader::distance(99), {{"leftEyeDistanceFromCamera", 50.0}});
    platform.clock->set(1700000001.5);
    storeSample(7);
    const auto records = storedRecords();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].type, "distance") << "the rate plays no part";
    EXPECT_EQ(records[0].data, R"({"leftEyeDistanceFromCamera":50})");
    EXPECT_EQ(records[0].timestamp, 1700000000.25);
    EXPECT_EQ(records[1].type, "ambient_light");
    EXPECT_EQ(records[1].timestamp, 1700000001.5);
    EXPECT_NE(records[0].id, records[1].id);
}

TEST_F(PersistenceControllerTest, DropsASampleWithAValueThatIsNotFinite) {
    ::testing::internal::CaptureStdout();
    storeSample(std::numeric_limits<double>::quiet_NaN());
    storeSample(std::numeric_limits<double>::infinity());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(store.countTrackingData(), 0);
}

TEST_F(PersistenceControllerTest, CountsAndDeletesAnEmptyStore) {
    EXPECT_EQ(store.countTrackingData(), 0);
    store.deleteAllTrackingData();
    EXPECT_EQ(store.countTrackingData(), 0);
}

TEST_F(PersistenceControllerTest, KeepsASamplePendingWhenItsCommitFails) {
    storeSample(1);
    {
        const WriteLock lock(storeFile());
        ::testing::internal::CaptureStdout();
        storeSample(2);
        const std::string line = ::testing::internal::GetCapturedStdout();
        EXPECT_TRUE(line.starts_with("[ ERROR ] Could not save data ")) << line;
        EXPECT_EQ(std::ranges::count(line, '\n'), 1);
        EXPECT_THAT(line, HasSubstr("locked"));
        EXPECT_EQ(store.countTrackingData(), 2) << "stored and pending";
        EXPECT_THAT(store.loadTrackingData().value().view(), HasSubstr(R"("lux":2)"));
        EXPECT_EQ(storedRecords().size(), 1U);
    }
    storeSample(3);
    const auto records = storedRecords();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[1].data, R"({"lux":2})") << "in the order of sampling";
    store.saveChanges();
    EXPECT_EQ(storedRecords().size(), 3U) << "none twice";
}

TEST_F(PersistenceControllerTest, ADeletionLeavesPendingSamples) {
    storeSample(1);
    {
        const WriteLock lock(storeFile());
        storeSample(2);
        store.deleteAllTrackingData();
        EXPECT_EQ(store.countTrackingData(), 2) << "the deletion failed, silently";
    }
    // Deleting does not commit what is pending.
    store.deleteAllTrackingData();
    EXPECT_EQ(store.countTrackingData(), 1);
    store.saveChanges();
    const auto records = storedRecords();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].data, R"({"lux":2})");
}

TEST_F(PersistenceControllerTest, TakesSamplesFromSeveralThreadsBesideDeletionsAndUploads) {
    constexpr int samples = 40;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 2; ++thread) {
            threads.emplace_back([this] {
                for (int i = 0; i < samples; ++i)
                    storeSample(i);
            });
        }
        threads.emplace_back([this] {
            for (int i = 0; i < 5; ++i)
                EXPECT_TRUE(store.loadTrackingData().has_value());
        });
    }
    EXPECT_EQ(store.countTrackingData(), 2 * samples);
    {
        const std::jthread deleting([this] { store.deleteAllTrackingData(); });
        const std::jthread counting([this] { EXPECT_TRUE(store.countTrackingData().has_value()); });
    }
    EXPECT_EQ(store.countTrackingData(), 0);
}

TEST_F(PersistenceControllerTest, FindsItsRecordsAgainAfterARestart) {
    storeSample(1);
    PersistenceController restarted(*platform);
    EXPECT_EQ(restarted.countTrackingData(), 1);
}

using PersistenceControllerDeathTest = PersistenceControllerTest;

TEST_F(PersistenceControllerDeathTest, StopsTheProcessWhenTheStoreCannotBeOpened) {
    std::filesystem::create_directories(storeFile().parent_path());
    std::ofstream(storeFile()) << std::string(4096, 'x');
    EXPECT_DEATH(store.countTrackingData(),
                 "Fatal error: Unresolved error .*TrackingDataContainer\\.sqlite.*, .*: file PersistenceController");
    EXPECT_EQ(std::filesystem::file_size(storeFile()), 4096U) << "nothing is moved or deleted";
}

TEST_F(PersistenceControllerDeathTest, StopsTheProcessWithoutItsObjectModel) {
    // A library bundle that is not there, and one whose model describes something else.
    class Resources final : public platform::Bundles, public platform::Bundle {
    public:
        explicit Resources(std::optional<std::filesystem::path> model) : model_(std::move(model)) {}
        const platform::Bundle& mainBundle() const override { return *this; }
        const platform::Bundle* bundleWithIdentifier(std::string_view) const override { return this; }
        std::unique_ptr<platform::PropertyListDictionary> dictionaryWithContentsOfFile(
            const std::filesystem::path&) const override {
            return nullptr;
        }
        std::optional<std::filesystem::path> pathForResource(std::string_view, std::string_view) const override {
            return model_;
        }
        std::optional<std::string> stringForInfoDictionaryKey(std::string_view) const override { return std::nullopt; }
        std::optional<std::string> bundleIdentifier() const override { return std::nullopt; }

    private:
        std::optional<std::filesystem::path> model_;
    };

    const auto otherModel = platform.directory.path() / "other.momd";
    std::ofstream(otherModel) << R"({"entities":[{"name":"Other","attributes":[]}]})";
    for (const auto& model : {std::optional<std::filesystem::path>(), std::optional(otherModel),
                              std::optional(platform.directory.path() / "missing.momd")}) {
        platform->setBundles(std::make_unique<Resources>(model));
        EXPECT_DEATH(storeSample(1), "Fatal error: Unresolved error: file PersistenceController");
    }
}

TEST(DataEntry, IsAHandleToAPendingObject) {
    const test::TestPlatform platform;
    const auto container = platform->objectStore().makeContainer("Other", {{DataEntry::entityDescription()}});
    ASSERT_TRUE(container->loadPersistentStores().has_value());
    DataEntry entry(container->viewContext());
    EXPECT_EQ(entry.id(), std::nullopt);
    EXPECT_EQ(entry.timestamp(), 0);
    EXPECT_EQ(entry.type(), std::nullopt);
    EXPECT_EQ(entry.data(), std::nullopt);
    const Uuid id = platform->uuidGenerator().makeUuid();
    entry.setId(id);
    entry.setTimestamp(1.5);
    entry.setType("t");
    entry.setData(DataEntry::Bytes{std::byte{1}});
    entry.setType(std::nullopt);
    EXPECT_EQ(entry.id(), id);
    EXPECT_EQ(entry.timestamp(), 1.5);
    EXPECT_EQ(entry.type(), std::nullopt);
    EXPECT_EQ(entry.data(), DataEntry::Bytes{std::byte{1}});
    EXPECT_EQ(container->viewContext().count(DataEntry::fetchRequest()).value(), 1);
}

}  // namespace tarvex
