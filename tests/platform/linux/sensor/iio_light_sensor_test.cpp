#include "platform/linux/sensor/iio_light_sensor.h"

#include <sys/stat.h>

#include "platform/linux/sensor/sensor_attribute.h"
#include "platform/linux/sensor/sensor_tree.h"
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

TEST_F(IioLightSensorTest, ReadsEveryDriverRight) {
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
          Case{"in_illuminance_raw=42", {42, {}}},
          // numbered, with a scale that is shared
          Case{"in_illuminance1_raw=7 in_illuminance0_raw=100 in_illuminance1_scale=9 in_illuminance_scale=2"
               " in_illuminance0_offset=-10 in_intensity0_both_raw=5 in_intensity1_ir_raw=6",
               {180, {5, 6, 0, 0}}},
          // the tenth after the ninth
          Case{"in_illuminance10_input=10 in_illuminance9_input=9 in_intensity_raw=3", {9, {3, 0, 0, 0}}}})
        EXPECT_THAT(read(attributes), Optional(expected)) << attributes;
}

TEST_F(IioLightSensorTest, OtherDevicesAreNoLightSensors) {
    tree.plug(0, "in_accel_x_raw=1 in_accel_scale=1 name=bma");
    tree.plug(1, "in_illuminance_scale=1 in_intensity_scale=1 in_intensity_uv_raw=1");
    for (const int number : {0, 1, 2})
        EXPECT_FALSE(IioLightSensor::isLightSensor(tree.device(number))) << number;
}

TEST_F(IioLightSensorTest, LimitsALevelToTheFieldsRange) {
    using Limits = std::numeric_limits<std::intptr_t>;
    using Case = std::pair<std::string, std::intptr_t>;
    for (const auto& [value, expected] : {Case{"4294967297", 4294967297}, Case{"-3.5", -4}, Case{"0.49", 0},
                                          Case{"1e300", Limits::max()}, Case{"-1e300", Limits::min()}})
        EXPECT_THAT(read("in_illuminance_input=" + value), Optional(LightReading{expected, {}})) << value;
    EXPECT_EQ(read("in_intensity_red_raw=1e39"), std::nullopt) << "beyond a 32-bit float";
    EXPECT_EQ(read("in_illuminance_raw=1e308 in_illuminance_offset=1e308 in_illuminance_scale=0"), std::nullopt)
        << "infinity times zero";
}

TEST_F(IioLightSensorTest, HalfAReadingIsNoneAndTheNextLookWorksAgain) {
    tree.plug(0, "in_illuminance_raw=10 in_illuminance_scale=2 in_illuminance_offset=1 in_intensity_both_raw=3");
    for (const std::string name :
         {"in_illuminance_raw", "in_illuminance_scale", "in_illuminance_offset", "in_intensity_both_raw"}) {
        const std::string good = contentsOf(tree.device(0) / name);
        const std::string tooLong = good + std::string(256, ' ');  // longer than any attribute
        for (const std::string& value : {std::string(), std::string("garbage\n"), std::string("nan\n"), tooLong}) {
            SCOPED_TRACE(name + " = " + value);
            tree.set(0, name, value);
            IioLightSensor sensor(tree.device(0));
            EXPECT_EQ(sensor.read(), std::nullopt);
            tree.set(0, name, good);
            EXPECT_THAT(sensor.read(), Optional(LightReading{22, {3, 0, 0, 0}}));
        }
    }
}

TEST_F(IioLightSensorTest, NeverBlocksOnWhatCannotBeRead) {
    using Replace = std::function<void(const std::filesystem::path&)>;
    const auto linkTo = [](const char* target) {
        return [target](const auto& path) { std::filesystem::create_symlink(target, path); };
    };
    tree.plug(0, "in_illuminance_input=5 in_intensity_both_raw=6");
    for (const auto& [what, replace] : std::map<std::string, Replace>{
             {"a FIFO without a writer", [](const auto& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
             {"a directory, whose read fails", [](const auto& path) { std::filesystem::create_directory(path); }},
             {"a link to itself", linkTo("in_intensity_both_raw")},
             {"a link to a terminal", linkTo("/dev/ptmx")},
             // No page is mapped at the start of a process: reading there answers EIO.
             {"an I/O error", linkTo("/proc/self/mem")},
             {"nothing", [](const auto&) {}}}) {
        SCOPED_TRACE(what);
        tree.set(0, "in_intensity_both_raw", "6\n");
        IioLightSensor sensor(tree.device(0));
        ASSERT_TRUE(sensor.read().has_value());
        const auto attribute = tree.device(0) / "in_intensity_both_raw";
        std::filesystem::remove(attribute);
        replace(attribute);
        EXPECT_EQ(sensor.read(), std::nullopt);
        std::filesystem::remove(attribute);
    }
}

TEST_F(IioLightSensorTest, ReadsADeviceAgainThatComesBackAsAnother) {
    tree.plug(0, "in_illuminance_input=5 in_intensity_both_raw=6");
    IioLightSensor sensor(tree.device(0));
    ASSERT_TRUE(sensor.read().has_value());
    tree.unplug(0);
    EXPECT_EQ(sensor.read(), std::nullopt);
    EXPECT_EQ(sensor.read(), std::nullopt);
    tree.plug(0, "in_intensity_red_raw=7");
    EXPECT_THAT(sensor.read(), Optional(LightReading{0, {7, 0, 0, 0}}));
}

}  // namespace
}  // namespace tarvex::platform
