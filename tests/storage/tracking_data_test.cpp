#include "storage/tracking_data.h"

#include "prelude.h"

namespace tarvex {

namespace {

std::optional<std::string> text(const std::optional<platform::ByteBuffer>& encoded) {
    return encoded ? std::optional(std::string(encoded->view())) : std::nullopt;
}

TrackingDataWrapper wrapperWith(std::vector<TrackingData> samples) {
    return {{.userId = "u\"1", .device = "x86_64", .applicationIdentifier = "org.example"}, std::move(samples)};
}

}  // namespace

TEST(TrackingDataWrapper, IsEncodedCompactlyAndReadsBack) {
    const auto encoded = encode(wrapperWith({{.timestamp = 12, .type = "t", .data = {}},
                                             {.timestamp = 1.5, .type = "d", .data = {{"b", 0.1F}, {"a", 1}}}}));
    EXPECT_EQ(text(encoded), R"({"trackingData":[{"data":{},"type":"t","timestamp":12},)"
                             R"({"data":{"a":1,"b":0.10000000149011612},"type":"d","timestamp":1.5}],)"
                             R"("userId":"u\"1","device":"x86_64","applicationIdentifier":"org.example"})");
    const auto decoded = decodeTrackingDataWrapper(encoded->view());
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(text(encode(*decoded)), text(encoded));
    EXPECT_THAT(text(encode(wrapperWith({}))).value(), ::testing::StartsWith(R"({"trackingData":[],"userId")"));
}

TEST(TrackingDataWrapper, FailsAsAWholeOnANumberThatIsNotFiniteWhereverItStands) {
    using Limits = std::numeric_limits<double>;
    for (const double number : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity()}) {
        for (const std::size_t place : {0U, 1U, 2U}) {
            std::vector<TrackingData> samples(3, {.timestamp = 1, .type = "t", .data = {}});
            auto values = samples;
            samples[place].timestamp = number;
            EXPECT_EQ(text(encode(wrapperWith(samples))), std::nullopt) << number << " at " << place;
            values[place].data = {{"a", number}};
            EXPECT_EQ(text(encode(wrapperWith(values))), std::nullopt) << number << " at " << place;
        }
    }
}

TEST(TrackingData, DecodesOnlyWithEveryMember) {
    EXPECT_EQ(decodeValueMap(R"({"lux":12})"), (ValueMap{{"lux", 12.0}}));
    EXPECT_TRUE(decodeTrackingData(R"({"timestamp":1,"type":"t","data":{},"more":[]})").has_value());
    for (const char* bad :
         {R"({"timestamp":1,"data":{}})", R"({"timestamp":"1","type":"t","data":{}})",
          R"({"timestamp":1,"type":null,"data":{}})", R"({"timestamp":1,"type":"t","data":{"a":"b"}})", R"([])"})
        EXPECT_FALSE(decodeTrackingData(bad).has_value()) << bad;
    for (const char* samples : {"1", "[1]", R"([{"type":"t"}])"})
        EXPECT_FALSE(decodeTrackingDataWrapper(
            R"({"userId":"","device":"","applicationIdentifier":"","trackingData":)" + std::string(samples) + "}"))
            << samples;
}

TEST(CodingKeys, AreFoundByTheFieldsNames) {
    using enum TrackingDataWrapper::CodingKeys;
    EXPECT_EQ(stringValue(applicationIdentifier), "applicationIdentifier");
    EXPECT_EQ(codingKey<TrackingDataWrapper>("trackingData"), trackingData);
    EXPECT_EQ(codingKey<TrackingData>("data"), TrackingData::CodingKeys::data);
    EXPECT_EQ(codingKey<TrackingData>("userId"), std::nullopt);
}

}  // namespace tarvex
