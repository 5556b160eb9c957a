#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "failing_object_store.h"
#include "storage/persistence_controller.h"
#include "tarvex/data_entry.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Stored as another version of the library, or a damaged disk, might have left it.
struct ForeignRecord {
    std::optional<std::string> type;
    std::optional<std::string> data;
    double timestamp = 5;
};

class LoadTrackingData : public ::testing::Test {
protected:
    void store(const std::vector<ForeignRecord>& records) {
        const auto container =
            platform->objectStore().makeContainer("TrackingDataContainer", {{DataEntry::entityDescription()}});
        ASSERT_TRUE(container->loadPersistentStores().has_value());
        for (const ForeignRecord& record : records) {
            DataEntry entry(container->viewContext());
            entry.setTimestamp(record.timestamp);
            entry.setType(record.type);
            if (record.data) {
                const auto bytes = std::as_bytes(std::span(*record.data));
                entry.setData(DataEntry::Bytes(bytes.begin(), bytes.end()));
            }
        }
        ASSERT_TRUE(container->viewContext().save().has_value());
    }

    TrackingDataWrapper load() {
        const auto document = controller.loadTrackingData();
        return decodeTrackingDataWrapper(document.value().view(), platform->jsonCoder()).value();
    }

    test::TestPlatform platform;
    PersistenceController controller{*platform};
};

}  // namespace

TEST_F(LoadTrackingData, NamesTheInstallationTheDeviceAndTheApplication) {
    const TrackingDataWrapper first = load();
    EXPECT_EQ(first.userId, platform.defaults->stringForKey("userID"));
    EXPECT_EQ(first.device, platform->systemInfo().machine());
    EXPECT_EQ(first.applicationIdentifier, "unknown");
    EXPECT_TRUE(first.trackingData.empty());

    std::ofstream(platform.directory.path() / "bundle/Info.plist")
        << "<plist><dict><key>CFBundleIdentifier</key><string>org.example.study</string></dict></plist>";
    const TrackingDataWrapper second = load();
    EXPECT_EQ(second.applicationIdentifier, "org.example.study");
    EXPECT_EQ(second.userId, first.userId);
}

TEST_F(LoadTrackingData, KeepsTheOrderAndTheStoreUnchanged) {
    for (int lux = 0; lux < 50; ++lux)
        controller.saveTrackingData(DataReader::ambientLight(1), {{"lux", lux}});
    const auto first = controller.loadTrackingData();
    EXPECT_EQ(first.value().view(), controller.loadTrackingData().value().view());
    const TrackingDataWrapper document = load();
    ASSERT_EQ(document.trackingData.size(), 50U);
    for (std::size_t i = 0; i < 50; ++i)
        EXPECT_EQ(document.trackingData[i].data.at("lux"), static_cast<double>(i));
    EXPECT_EQ(controller.countTrackingData(), 50);
}

TEST_F(LoadTrackingData, LeavesOutRecordsThatCannotBeRead) {
    using namespace std::string_literals;
    store({{"good", R"({"lux":1})"},
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
           {"quote\"d", R"({ "lux": 8, "lux": 9 })"}});
    const TrackingDataWrapper document = load();
    ASSERT_EQ(document.trackingData.size(), 2U);
    EXPECT_EQ(document.trackingData[0].type, "good");
    EXPECT_EQ(document.trackingData[1].type, "quote\"d");
    EXPECT_EQ(document.trackingData[1].data, (ValueMap{{"lux", 9}})) << "of two members with one name the last counts";
    EXPECT_EQ(controller.countTrackingData(), 12) << "they stay stored";
}

TEST_F(LoadTrackingData, IsAbsentForATimeThatIsNotFinite) {
    store({{"t", R"({})", std::numeric_limits<double>::infinity()}});
    EXPECT_FALSE(controller.loadTrackingData().has_value());
}

TEST_F(LoadTrackingData, KeepsEveryBitOfATimeStamp) {
    store({{"t", R"({})", 1700000000.1234567}});
    EXPECT_EQ(load().trackingData.at(0).timestamp, 1700000000.1234567);
}

TEST_F(LoadTrackingData, DoesNotTouchTheUserIdentifierWhenTheFetchFails) {
    platform->setObjectStore(std::make_unique<test::FailingObjectStore>());
    EXPECT_FALSE(controller.loadTrackingData().has_value());
    EXPECT_EQ(platform.defaults->stringForKey("userID"), std::nullopt);
    EXPECT_EQ(controller.countTrackingData(), std::nullopt);
    controller.deleteAllTrackingData();
}

}  // namespace tarvex
