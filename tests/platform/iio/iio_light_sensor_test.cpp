#include "platform/iio/iio_light_sensor.h"

#include <sys/stat.h>

#include "platform/iio/sensor_tree.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using test::SensorTree;

TEST(ParseSensorNumber, TakesThePlainNumbersOfTheKernelOnly) {
    using Case = std::pair<const char*, double>;
    for (const auto& [text, expected] :
         {Case{"0\n", 0.0}, Case{"123.456000\n", 123.456}, Case{"-0.500000\n", -0.5}, Case{"250", 250.0},
          Case{"250 \t\r\n", 250.0}, Case{"1e3\n", 1000.0}, Case{"4294967297\n", 4294967297.0}})
        EXPECT_EQ(parseSensorNumber(text), expected) << text;
    for (const std::string_view text :
         {"1,5\n", "nan\n", "-nan(x)\n", "inf\n", "1e999\n", "", "\n", "12 dB\n", "1 2 3\n", "0x10\n", "-\n"})
        EXPECT_EQ(parseSensorNumber(text), std::nullopt) << text;
    EXPECT_EQ(parseSensorNumber(std::string_view("1\0", 2)), std::nullopt);
}

class IioLightSensorTest : public ::testing::Test {
protected:
    std::optional<LightReading> read(const std::string& attributes) {
        tree.unplug(0);
        tree.plug(0, attributes);
        EXPECT_TRUE(IioLightSensor::isLightSensor(tree.device(0)));
        return IioLightSensor(tree.device(0)).read();
    }

    SensorTree tree;
};

TEST_F(IioLightSensorTest, ReadsEveryDriverRightAndRefusesWhatDoesNotFit) {
    using Case = std::pair<const char*, LightReading>;
    for (const auto& [attributes, expected] :
         {// opt4060
          Case{"in_illuminance_input=321.5 in_intensity_red_raw=11 in_intensity_green_raw=22"
               " in_intensity_blue_raw=33 in_intensity_clear_raw=44",
               {322, {11, 22, 33, 44}}},
          // apds9960
          Case{"in_intensity_clear_raw=400 in_intensity_red_raw=100 in_intensity_green_raw=200"
               " in_intensity_blue_raw=300 in_intensity_scale=16 scale=16 in_proximity_raw=7",
               {0, {100, 200, 300, 400}}},
          // isl29125, and with a fourth channel tcs3472, tcs3414, bh1745, veml6040
          Case{"in_intensity_green_raw=20 in_intensity_red_raw=65535 in_intensity_blue_raw=30",
               {0, {65535, 20, 30, 0}}},
          // veml6030
          Case{"in_illuminance_raw=9999 in_illuminance_input=57 in_illuminance_scale=0.5 in_intensity_both_raw=812",
               {57, {812, 0, 0, 0}}},
          // tsl2591
          Case{"in_illuminance_input=10 in_intensity_both_raw=500 in_intensity_ir_raw=90", {10, {500, 90, 0, 0}}},
          // hid-sensor-als: 250.5, to the nearest
          Case{"in_illuminance_raw=250000 in_illuminance_scale=0.001 in_illuminance_offset=500"
               " in_intensity_both_raw=250000",
               {251, {250000, 0, 0, 0}}},
          Case{"in_illuminance_raw=42", {42, {}}}, Case{"in_illuminance_input=-3.5", {-4, {}}},
          Case{"in_illuminance_input=0.49", {0, {}}}, Case{"in_illuminance_input=4294967297", {4294967297, {}}},
          Case{"in_illuminance_input=9223372036854774784", {9223372036854774784, {}}},
          Case{"in_illuminance_input=-9223372036854775808", {INT64_MIN, {}}},
          // numbered, with a scale that is shared
          Case{"in_illuminance1_raw=7 in_illuminance0_raw=100 in_illuminance1_scale=9 in_illuminance_scale=2"
               " in_illuminance0_offset=-10 in_intensity0_both_raw=5 in_intensity1_ir_raw=6",
               {180, {5, 6, 0, 0}}},
          Case{"in_illuminance0_raw=100 in_illuminance0_scale=3 in_illuminance_scale=2", {300, {}}},
          // the tenth after the ninth
          Case{"in_illuminance10_input=10 in_illuminance9_input=9 in_intensity_raw=3", {9, {3, 0, 0, 0}}}})
        EXPECT_THAT(read(attributes), Optional(expected)) << attributes;
    for (const char* attributes :
         {"in_illuminance_input=9223372036854775807", "in_illuminance_input=-9223372036854777856",
          "in_illuminance_input=1e300", "in_illuminance_input=-1e300",
          "in_illuminance_raw=1e308 in_illuminance_scale=10",                                  // infinite
          "in_illuminance_raw=1e308 in_illuminance_offset=1e308 in_illuminance_scale=0",       // infinity times zero
          "in_illuminance_input=1 in_intensity_red_raw=1e39", "in_intensity_both_raw=-1e39"})  // beyond a 32-bit float
        EXPECT_EQ(read(attributes), std::nullopt) << attributes;
}

TEST_F(IioLightSensorTest, NeverBlocksOnWhatCannotBeReadAndTheNextLookWorksAgain) {
    using Replace = std::function<void(const std::filesystem::path&)>;
    const auto linkTo = [](const char* target) {
        return [target](const auto& path) { std::filesystem::create_symlink(target, path); };
    };
    const auto text = [](const std::string& value) { return [value](const auto& path) { writeFile(path, value); }; };
    const LightReading good = {22, {3, 0, 0, 0}};
    tree.plug(0, "in_illuminance_raw=10 in_illuminance_scale=2 in_illuminance_offset=1 in_intensity_both_raw=3");
    for (const char* name :
         {"in_illuminance_raw", "in_illuminance_scale", "in_illuminance_offset", "in_intensity_both_raw"})
        for (const auto& [what, replace] : std::map<std::string, Replace>{
                 {"garbage", text("garbage\n")},
                 {"longer than any attribute", text("1" + std::string(256, ' '))},
                 {"a FIFO without a writer", [](const auto& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
                 {"a directory, whose read fails", [](const auto& path) { std::filesystem::create_directory(path); }},
                 {"a link to itself", linkTo(name)},
                 {"a link to a terminal", linkTo("/dev/ptmx")},
                 // No page is mapped at the start of a process: reading there answers EIO.
                 {"an I/O error", linkTo("/proc/self/mem")}}) {
            SCOPED_TRACE(std::string(name) + " is " + what);
            const auto attribute = tree.device(0) / name;
            const std::string value = contentsOf(attribute);
            IioLightSensor sensor(tree.device(0));
            EXPECT_THAT(sensor.read(), Optional(good));
            std::filesystem::remove(attribute);
            replace(attribute);
            EXPECT_EQ(sensor.read(), std::nullopt);
            std::filesystem::remove(attribute);
            tree.set(0, name, value);
            EXPECT_THAT(sensor.read(), Optional(good));
        }
}

TEST_F(IioLightSensorTest, FollowsAttributesThatAppearAndGoAndDevicesThatReplaceEachOther) {
    const auto gives = [](std::int64_t lux, double channel0) { return LightReading{lux, {channel0, 0, 0, 0}}; };
    // The attribute that goes, "." for the device; those that appear; the reading then.
    using Step = std::tuple<std::string, std::string, std::optional<LightReading>>;
    IioLightSensor sensor(tree.device(0));
    for (const auto& [gone, plugged, expected] :
         {Step(".", "", {}), Step("", "in_illuminance_raw=10 in_intensity_both_raw=3", gives(10, 3)),
          Step("", "in_illuminance_scale=2", gives(20, 3)), Step("", "in_illuminance_offset=5", gives(30, 3)),
          // An attribute that goes is missing, and neither 0 nor 1, until it or another one is there.
          Step("in_illuminance_scale", "", {}), Step("in_illuminance_offset", "", {}),
          Step("", "in_illuminance_scale=3", {}), Step("", "in_illuminance_offset=0", gives(30, 3)),
          Step("in_illuminance_raw", "", {}), Step("", "in_illuminance_input=7", gives(7, 3)),
          Step("in_intensity_both_raw", "", {}), Step("", "in_intensity_raw=4", gives(7, 4)),
          // Another device never had them.
          Step(".", "in_intensity_red_raw=7", gives(0, 7)), Step(".", "", {}),
          Step("", "in_intensity_both_raw=8", gives(0, 8))}) {
        SCOPED_TRACE("without " + gone + ", with " + plugged);
        if (gone == ".") tree.unplug(0);
        if (gone.starts_with("in_")) std::filesystem::remove(tree.device(0) / gone);
        if (!plugged.empty()) tree.plug(0, plugged);
        EXPECT_EQ(sensor.read(), expected);
        EXPECT_EQ(sensor.read(), expected) << "at the next look";
    }
}

TEST_F(IioLightSensorTest, AReadingIsOfOneDeviceAlsoWhileAnotherTakesItsPlace) {
    tree.plug(1, "in_illuminance_input=1 in_intensity_both_raw=1");
    tree.plug(2, "in_illuminance_raw=1 in_illuminance_scale=2 in_intensity_both_raw=2");
    std::counting_semaphore<> looks(1);
    const auto replaceBy = [&](int number) {
        looks.acquire();
        std::filesystem::create_directory_symlink(tree.device(number), tree.root() / "fresh");
        std::filesystem::rename(tree.root() / "fresh", tree.device(0));
    };
    replaceBy(1);
    const auto times = std::views::iota(0, 500);
    const std::jthread other([&] { std::ranges::for_each(times, [&](int i) { replaceBy(1 + i % 2); }); });
    IioLightSensor sensor(tree.device(0));
    std::vector<std::optional<LightReading>> readings;
    for ([[maybe_unused]] const int i : times) {
        looks.release();
        readings.push_back(sensor.read());  // none when it is replaced too often meanwhile
    }
    const auto one = Optional(LightReading{1, {1, 0, 0, 0}});
    const auto two = Optional(LightReading{2, {2, 0, 0, 0}});
    EXPECT_THAT(readings, Each(AnyOf(one, two, std::nullopt)));
}

}  // namespace
}  // namespace tarvex::platform
