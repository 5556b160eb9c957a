#include "tarvex/platform/json.h"

#include <random>

#include "prelude.h"
#include "storage/tracking_data.h"

namespace tarvex::platform {

namespace {

using namespace std::string_literals;

ValueMapAppender values;  // for all maps, as in a document

std::optional<std::string> appended(const std::string& valueMap) {
    ByteBuffer output;
    output.append("before");
    const bool taken = values.append(valueMap, output);
    EXPECT_EQ(decodeValueMap(valueMap).has_value(), taken);
    EXPECT_TRUE(output.view().starts_with("before"));
    if (!taken) {
        EXPECT_EQ(output.view(), "before") << "a refused map leaves nothing behind";
        return std::nullopt;
    }
    return std::string(output.view().substr(6));
}

std::optional<std::string> number(double value) {
    ByteBuffer output;
    const bool taken = appendJsonNumber(value, output);
    EXPECT_EQ(taken, output.size() > 0);
    return taken ? std::optional(std::string(output.view())) : std::nullopt;
}

std::string quoted(std::string_view text) {
    ByteBuffer output;
    appendJsonString(text, output);
    return std::string(output.view());
}

}  // namespace

TEST(Json, RewritesOnlyValueMapsThatAreNotCompactOrRepeatNames) {
    for (const auto& map :
         {R"({})"s, R"({"lux":250})"s, R"({"a":-2.5e-3,"b":0,"c":1E+7})"s, R"({"a":0e999})"s, R"({"a":1e-999})"s,
          R"({"a":18446744073709551616})"s, R"({"":1})"s, R"({"Größe":1})"s, R"({"a b":1})"s, R"({"a}b":1})"s,
          R"({"a1b":1,"a2b":2})"s, R"({"\\":1})"s, R"({"\"":1})"s, R"({"a":0.)" + std::string(400, '0') + "1}"})
        EXPECT_EQ(appended(map), map);
    using Case = std::pair<const char*, const char*>;
    for (const auto& [map, rewritten] :
         {Case{" { } ", "{}"}, Case{R"({ "a" : 1 })", R"({"a":1})"}, Case{R"({"a":1 })", R"({"a":1})"},
          Case{"{\"a\":1}\n", R"({"a":1})"}, Case{R"({"a":1,"a":2})", R"({"a":2})"},
          Case{R"({"a":-0,"a":-0})", R"({"a":-0.0})"}, Case{R"({"a":1,"\u0061":3})", R"({"a":3})"},
          Case{R"({"a":{"b":null},"a":1})", R"({"a":1})"},
          Case{R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"a":0})",
               R"({"a":0,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9})"}})
        EXPECT_EQ(appended(map), rewritten) << map;
}

TEST(Json, RefusesWhatIsNoMapOfFiniteNumbers) {
    for (const auto* value : {R"("1")", "null", "true", "[1]", "{}", "1e999", "-1e999", "-", ".5", "NaN", "01", "1.",
                              "+1", "1,", "1 2", R"(1}{"b":2)", R"(1,"b":[])", ""})
        EXPECT_EQ(appended(R"({"b":0,"a":)" + std::string(value) + "}"), std::nullopt) << value;
    for (const auto& text : {""s, "{"s, "[1]"s, "null"s, R"({"a":1)"s, R"({"a":1}})"s, R"({"a":1}x)"s, R"({"a"1})"s,
                             R"({'a':1})"s, "{\"a\":1}\0"s, "\xEF\xBB\xBF{\"a\":1}"s, "{\"\xFF\":1}"s,
                             R"({"\ud800":1})"s, R"({"\x":1})"s, "{\"a\nb\":1}"s, R"({"a":1]})"s, R"({"a":1}],[{})"s,
                             R"({"a":1)" + std::string(400, '0') + "}", std::string(100'000, '[')})
        EXPECT_EQ(appended(text), std::nullopt) << text.substr(0, 40);
}

TEST(Json, WritesNumbersThatReadBackTheSame) {
    std::mt19937_64 random(randomSeed(1));
    for (int i = 0; i < 100'000; ++i) {
        const auto value = std::bit_cast<double>(random());
        if (!std::isfinite(value)) continue;
        const auto decoded = decodeJson(number(value).value());
        ASSERT_TRUE(decoded.has_value());
        ASSERT_EQ(std::bit_cast<std::uint64_t>(std::get<double>(decoded->value)), std::bit_cast<std::uint64_t>(value));
    }
    EXPECT_EQ(number(static_cast<double>(0.1F)), "0.10000000149011612");
    EXPECT_EQ(number(250), "250");
    EXPECT_EQ(number(-0.0), "-0.0");
    for (const auto* zero : {"-0", "-0.0", "-0e1"}) {
        const auto decoded = decodeJson(zero);
        EXPECT_TRUE(decoded && std::signbit(std::get<double>(decoded->value))) << zero;
    }
}

TEST(Json, EscapesStringsAndReplacesWhatIsNotUtf8) {
    EXPECT_EQ(quoted("plain"), R"("plain")");
    EXPECT_EQ(quoted("a\"b\\c\n\x01"), R"("a\"b\\c\u000a\u0001")");
    EXPECT_EQ(quoted("Größe \U0001F441"), "\"Größe \U0001F441\"");
    EXPECT_EQ(quoted("a\xFF"), "\"a\uFFFD\"");
    EXPECT_EQ(quoted(std::string_view("a\0b", 3)), R"("a\u0000b")");
}

TEST(Json, DecodesTheLastOfEachNameToAReasonableDepth) {
    const auto value = decodeJson(R"({"a":[1,"x",true,null],"a":[2]})").value();
    const auto& array = std::get<JsonValue::Array>(std::get<JsonValue::Object>(value.value).at("a").value);
    EXPECT_EQ(std::get<double>(array.at(0).value), 2);
    EXPECT_FALSE(decodeJson(std::string(1000, '[') + std::string(1000, ']')).has_value());
}

}  // namespace tarvex::platform
