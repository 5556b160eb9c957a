#include "collector/exports/export.h"

#include "collector/store/sqlite/sqlite_store.h"
#include "prelude.h"

namespace tarvex::collector {

TEST(Exports, WriteEveryNumberToItsLastBitInBothFormats) {
    const TemporaryDirectory directory;
    const auto store = openSqliteStore(directory.path() / "samples.sqlite");
    Document document(directory.path());
    document.sender = {.participant = "a \"b\", c\n", .application = "x", .device = "y"};
    document.light.push({.time = 1'790'000'000.123456, .lux = 0.1, .channels = {1e300, 0, 3, 65535}});
    document.distances.push({.time = -1, .leftEye = 30.5, .rightEye = 1.0 / 3});
    document.distances.push({.time = 1e300, .leftEye = 1, .rightEye = 2});
    document.others.push({.time = 0.9999999, .type = "a,b", .values = R"({"x":1})"});
    store->import({}, document, false, -1e308);
    const auto exported = [&](Kind kind, Format format) {
        std::string text;
        exportSamples(*store, kind, format, {}, [&](std::string_view piece) { text += piece; });
        return text;
    };
    const std::string quoted = "\"a \"\"b\"\", c\n\"";
    EXPECT_EQ(exported(Kind::light, Format::csv),
              "participant,time,timeUTC,lux,channel0,channel1,channel2,channel3\n" + quoted +
                  ",1790000000.123456,2026-09-21T14:13:20.123456Z,0.1,1e+300,0,3,65535\n");
    EXPECT_EQ(exported(Kind::distance, Format::csv),
              "participant,time,timeUTC,leftEyeDistanceFromCamera,rightEyeDistanceFromCamera\n" + quoted +
                  ",-1,1969-12-31T23:59:59.000000Z,30.5,0.3333333333333333\n" + quoted + ",1e+300,,1,2\n");
    EXPECT_EQ(exported(Kind::other, Format::csv),
              "participant,time,timeUTC,type,values\n" + quoted +
                  ",0.9999999,1970-01-01T00:00:01.000000Z,\"a,b\",\"{\"\"x\"\":1}\"\n");
    EXPECT_EQ(exported(Kind::other, Format::jsonLines),
              R"({"participant":"a \"b\", c\u000a","time":0.9999999,"timeUTC":"1970-01-01T00:00:01.000000Z",)"
              R"("type":"a,b","values":{"x":1}})"
              "\n");
    EXPECT_THAT(exported(Kind::light, Format::jsonLines), HasSubstr(R"("lux":0.1,"channel0":1e+300,)"));
    std::istringstream dictionary(dataDictionary());
    for (const char* column : {"lux", "channel3", "leftEyeDistanceFromCamera", "values"})
        EXPECT_THAT(dictionary.str(), HasSubstr(std::string(",") + column + ","));
}

}  // namespace tarvex::collector
