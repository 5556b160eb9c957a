#include "platform/linux/sensor/iio_light_sensor.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <limits>

#include "platform/linux/sensor/sensor_attribute.h"
#include "platform/linux/sensor/sensor_tree.h"

namespace tarvex::platform {
namespace {

using test::SensorTree;
using ::testing::Optional;

TEST(ParseSensorNumber, TakesThePlainNumbersOfTheKernelOnly) {
    struct Case {
        std::string_view text;
        std::optional<double> expected;
    };
    for (const Case& c :
         {Case{"0\n", 0.0}, Case{"123.456000\n", 123.456}, Case{"-0.500000\n", -0.5}, Case{"250", 250.0},
          Case{"250 \t\r\n", 250.0}, Case{"1e3\n", 1000.0}, Case{"4294967297\n", 4294967297.0},
          Case{"1,5\n", std::nullopt}, Case{"nan\n", std::nullopt}, Case{"-nan(x)\n", std::nullopt},
          Case{"inf\n", std::nullopt}, Case{"1e999\n", std::nullopt}, Case{"", std::nullopt}, Case{"\n", std::nullopt},
          Case{"12 dB\n", std::nullopt}, Case{"1 2 3\n", std::nullopt}, Case{"0x10\n", std::nullopt},
          Case{"-\n", std::nullopt}, Case{std::string_view("1\0", 2), std::nullopt}})
        EXPECT_EQ(parseSensorNumber(c.text), c.expected) << c.text;
}

TEST(IioLightSensor, ReadsEveryDriverRight) {
    struct Case {
        const char* driver;
        SensorTree::Attributes attributes;
        LightReading expected;
    };
    const Case cases[] = {
        {"opt4060",
         {{"in_illuminance_input", "321.500000\n"},
          {"in_intensity_red_raw", "11\n"},
          {"in_intensity_green_raw", "22\n"},
          {"in_intensity_blue_raw", "33\n"},
          {"in_intensity_clear_raw", "44\n"}},
         {322, {11, 22, 33, 44}}},
        {"apds9960",
         {{"in_intensity_clear_raw", "400\n"},
          {"in_intensity_red_raw", "100\n"},
          {"in_intensity_green_raw", "200\n"},
          {"in_intensity_blue_raw", "300\n"},
          {"in_intensity_scale", "16\n"},
          {"scale", "16\n"},
          {"in_proximity_raw", "7\n"}},
         {0, {100, 200, 300, 400}}},
        {"tcs3472, tcs3414, bh1745, veml6040",
         {{"in_intensity_red_raw", "65535\n"},
          {"in_intensity_green_raw", "2\n"},
          {"in_intensity_blue_raw", "3\n"},
          {"in_intensity_clear_raw", "4\n"}},
         {0, {65535, 2, 3, 4}}},
        {"isl29125",
         {{"in_intensity_green_raw", "20\n"}, {"in_intensity_red_raw", "10\n"}, {"in_intensity_blue_raw", "30\n"}},
         {0, {10, 20, 30, 0}}},
        {"veml6030",
         {{"in_illuminance_raw", "9999\n"},
          {"in_illuminance_input", "57\n"},
          {"in_illuminance_scale", "0.5\n"},
          {"in_intensity_both_raw", "812\n"}},
         {57, {812, 0, 0, 0}}},
        {"tsl2591",
         {{"in_illuminance_input", "10.000000\n"}, {"in_intensity_both_raw", "500\n"}, {"in_intensity_ir_raw", "90\n"}},
         {10, {500, 90, 0, 0}}},
        {"hid-sensor-als",
         {{"in_illuminance_raw", "250000\n"},
          {"in_illuminance_scale", "0.001000\n"},
          {"in_illuminance_offset", "500\n"},
          {"in_intensity_both_raw", "250000\n"}},
         {251, {250000, 0, 0, 0}}},  // 250.5, to the nearest
        {"raw level alone", {{"in_illuminance_raw", "42\n"}}, {42, {}}},
        {"numbered, with a scale that is shared",
         {{"in_illuminance1_raw", "7\n"},
          {"in_illuminance0_raw", "100\n"},
          {"in_illuminance1_scale", "9\n"},
          {"in_illuminance_scale", "2\n"},
          {"in_illuminance0_offset", "-10\n"},
          {"in_intensity0_both_raw", "5\n"},
          {"in_intensity1_ir_raw", "6\n"}},
         {180, {5, 6, 0, 0}}},
        {"numbered tenth after ninth",
         {{"in_illuminance10_input", "10\n"}, {"in_illuminance9_input", "9\n"}, {"in_intensity_raw", "3\n"}},
         {9, {3, 0, 0, 0}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.driver);
        SensorTree tree;
        tree.plug(0, c.attributes);
        EXPECT_TRUE(IioLightSensor::isLightSensor(tree.device(0)));
        EXPECT_THAT(IioLightSensor(tree.device(0)).read(), Optional(c.expected));
    }
}

TEST(IioLightSensor, OtherDevicesAreNoLightSensors) {
    SensorTree tree;
    tree.plug(0, {{"in_accel_x_raw", "1\n"}, {"in_accel_scale", "1\n"}, {"name", "bma\n"}});
    tree.plug(1, {{"in_illuminance_scale", "1\n"}, {"in_intensity_scale", "1\n"}, {"in_intensity_uv_raw", "1\n"}});
    EXPECT_FALSE(IioLightSensor::isLightSensor(tree.device(0)));
    EXPECT_FALSE(IioLightSensor::isLightSensor(tree.device(1)));
    EXPECT_FALSE(IioLightSensor::isLightSensor(tree.device(2)));
}

TEST(IioLightSensor, LimitsALevelToTheFieldsRange) {
    struct Case {
        const char* value;
        std::intptr_t expected;
    };
    for (const Case& c : {Case{"4294967297\n", 4294967297}, Case{"-3.5\n", -4}, Case{"0.49\n", 0},
                          Case{"1e300\n", std::numeric_limits<std::intptr_t>::max()},
                          Case{"-1e300\n", std::numeric_limits<std::intptr_t>::min()}}) {
        SensorTree tree;
        tree.plug(0, {{"in_illuminance_input", c.value}});
        EXPECT_THAT(IioLightSensor(tree.device(0)).read(), Optional(LightReading{c.expected, {}})) << c.value;
    }
}

TEST(IioLightSensor, HalfAReadingIsNoneAndTheNextLookWorksAgain) {
    for (const char* name :
         {"in_illuminance_raw", "in_illuminance_scale", "in_illuminance_offset", "in_intensity_both_raw"}) {
        for (const char* value : {"", "garbage\n", "nan\n", "1,5\n", "1e999\n"}) {
            SCOPED_TRACE(std::string(name) + " = " + value);
            SensorTree tree;
            const SensorTree::Attributes good = {{"in_illuminance_raw", "10\n"},
                                                 {"in_illuminance_scale", "2\n"},
                                                 {"in_illuminance_offset", "1\n"},
                                                 {"in_intensity_both_raw", "3\n"}};
            tree.plug(0, good);
            tree.set(0, name, value);
            IioLightSensor sensor(tree.device(0));
            EXPECT_EQ(sensor.read(), std::nullopt);
            tree.set(0, name, good.at(name));
            EXPECT_THAT(sensor.read(), Optional(LightReading{22, {3, 0, 0, 0}}));
        }
    }
}

TEST(IioLightSensor, NumbersThatTheReadingCannotCarryAreNone) {
    SensorTree tree;
    tree.plug(0, {{"in_intensity_red_raw", "1e39\n"}});
    EXPECT_EQ(IioLightSensor(tree.device(0)).read(), std::nullopt) << "beyond a 32-bit float";
    tree.plug(
        1, {{"in_illuminance_raw", "1e308\n"}, {"in_illuminance_offset", "1e308\n"}, {"in_illuminance_scale", "0\n"}});
    EXPECT_EQ(IioLightSensor(tree.device(1)).read(), std::nullopt) << "infinity times zero";
    tree.plug(2, {{"in_illuminance_input", "1" + std::string(256, ' ')}});
    EXPECT_EQ(IioLightSensor(tree.device(2)).read(), std::nullopt) << "longer than any attribute";
}

TEST(IioLightSensor, NeverBlocksOnWhatIsNoRegularFile) {
    using Replace = void (*)(const std::filesystem::path&);
    struct Case {
        const char* what;
        Replace replace;
    };
    const Case cases[] = {
        {"a FIFO without a writer", [](const auto& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
        {"a directory, whose read fails", [](const auto& path) { std::filesystem::create_directory(path); }},
        {"a link to itself", [](const auto& path) { std::filesystem::create_symlink(path, path); }},
        {"a link to a terminal", [](const auto& path) { std::filesystem::create_symlink("/dev/ptmx", path); }},
        {"nothing", [](const auto&) {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SensorTree tree;
        tree.plug(0, {{"in_illuminance_input", "5\n"}, {"in_intensity_both_raw", "6\n"}});
        IioLightSensor sensor(tree.device(0));
        ASSERT_TRUE(sensor.read().has_value());
        const auto attribute = tree.device(0) / "in_intensity_both_raw";
        std::filesystem::remove(attribute);
        c.replace(attribute);
        EXPECT_EQ(sensor.read(), std::nullopt);
    }
}

// Reading this file of one's own process at its start answers EIO: no page is mapped there.
TEST(IioLightSensor, AnIoErrorIsNoReading) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "5\n"}});
    IioLightSensor sensor(tree.device(0));
    ASSERT_TRUE(sensor.read().has_value());
    std::filesystem::remove(tree.device(0) / "in_illuminance_input");
    std::filesystem::create_symlink("/proc/self/mem", tree.device(0) / "in_illuminance_input");
    EXPECT_EQ(sensor.read(), std::nullopt);
}

TEST(IioLightSensor, ReadsADeviceAgainThatComesBackAsAnother) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "5\n"}, {"in_intensity_both_raw", "6\n"}});
    IioLightSensor sensor(tree.device(0));
    ASSERT_TRUE(sensor.read().has_value());
    tree.unplug(0);
    EXPECT_EQ(sensor.read(), std::nullopt);
    EXPECT_EQ(sensor.read(), std::nullopt);
    tree.plug(0, {{"in_intensity_red_raw", "7\n"}});
    EXPECT_THAT(sensor.read(), Optional(LightReading{0, {7, 0, 0, 0}}));
}

}  // namespace
}  // namespace tarvex::platform
