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
    EXPECT_EQ(text(encode(wrapperWith({}))),
              R"({"trackingData":[],"userId":"u\"1","device":"x86_64","applicationIdentifier":"org.example"})");
    const auto encoded = encode(wrapperWith({{.timestamp = 12, .type = "t", .data = {}},
                                             {.timestamp = 1.5, .type = "distance", .data = {{"left", 0.1F}}}}),
                                coder);
    EXPECT_THAT(text(encoded).value(), HasSubstr(R"([{"data":{},"type":"t","timestamp":12},)"));
    const auto decoded = decodeTrackingDataWrapper(encoded->view());
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->userId, "u\"1");
    EXPECT_EQ(decoded->device, "x86_64");
    EXPECT_EQ(decoded->applicationIdentifier, "org.example");
    ASSERT_THAT(decoded->trackingData, SizeIs(2));
    EXPECT_EQ(decoded->trackingData[1].timestamp, 1.5);
    EXPECT_EQ(decoded->trackingData[1].type, "distance");
    EXPECT_EQ(decoded->trackingData[1].data, (ValueMap{{"left", 0.10000000149011612}}));
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
        EXPECT_EQ(text(encode(ValueMap{{"lux", number}})), std::nullopt);
    }
}

TEST(ValueMap, EncodesAndDecodes) {
    EXPECT_EQ(text(encode(ValueMap{})), "{}");
    EXPECT_EQ(text(encode(ValueMap{{"b", 2.5}, {"a", 1}})), R"({"a":1,"b":2.5})");
    EXPECT_EQ(decodeValueMap(R"({"lux":12})"), (ValueMap{{"lux", 12.0}}));
}

TEST(TrackingData, DecodesOnlyWithEveryMember) {
    EXPECT_TRUE(decodeTrackingData(R"({"timestamp":1,"type":"t","data":{},"more":[]})").has_value());
    for (const char* bad :
         {R"({"timestamp":1,"data":{}})", R"({"timestamp":"1","type":"t","data":{}})",
          R"({"timestamp":1,"type":null,"data":{}})", R"({"timestamp":1,"type":"t","data":{"a":"b"}})", R"([])"})
        EXPECT_FALSE(decodeTrackingData(bad).has_value()) << bad;
    EXPECT_FALSE(decodeTrackingDataWrapper(
                     R"({"userId":"","device":"","applicationIdentifier":"","trackingData":[{"type":"t"}]})")
                     .has_value());
}

TEST(CodingKeys, AreNamedLikeTheFields) {
    using enum TrackingDataWrapper::CodingKeys;
    EXPECT_EQ(stringValue(applicationIdentifier), "applicationIdentifier");
    EXPECT_EQ(codingKey<TrackingDataWrapper>("trackingData"), trackingData);
    EXPECT_EQ(codingKey<TrackingData>("data"), TrackingData::CodingKeys::data);
    EXPECT_EQ(codingKey<TrackingData>("userId"), std::nullopt);
}

}  // namespace tarvex
