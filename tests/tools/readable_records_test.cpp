// What the looks at a store take for a readable record: the same as an upload does.

#include "platform/sqlite/sample_store.h"
#include "prelude.h"
#include "storage/tracking_data.h"
#include "store/csv_export.h"
#include "store/preview.h"
#include "store/verification.h"

namespace tarvex::tool {

TEST(ReadableRecords, AreTheSameForAnUploadTheCheckAndTheTable) {
    const TemporaryDirectory directory;
    platform::SqliteObjectStore objects([&] { return directory.path(); });
    ASSERT_TRUE(objects.makeContainer("TrackingDataContainer")->loadPersistentStores());
    test::OtherProgram store(directory.path() / "TrackingDataContainer.sqlite");
    std::vector<double> readable;
    std::int64_t unreadable = 0;
    for (const auto& [record, isReadable] :
         {std::pair(R"(1, 'a', x'7b7d')", true),  // {}
          {R"(2, 'a', cast('{"x":1}' AS BLOB))", true},
          {R"(3, 'a', cast('{"x":1,"x":-2e3}' AS BLOB))", true},
          {R"(4, 'a', cast(' { "x" : 1 } ' AS BLOB))", true},
          {R"(5, 'a', cast('{"a":1,"b":1,"c":1,"d":1,"e":1,"f":1,"g":1,"h":1,"i":1}' AS BLOB))", true},
          {R"(6, '', x'7b7d')", true},
          {R"(NULL, 'a', x'7b7d')", false},
          {R"('seven', 'a', x'7b7d')", false},
          {R"(8, NULL, x'7b7d')", false},
          {R"(9, cast(x'ff' AS TEXT), x'7b7d')", false},
          {R"(10, 'a', NULL)", false},
          {R"(11, 'a', '{}')", false},
          {R"(12, 'a', x'')", false},
          {R"(13, 'a', cast('[1]' AS BLOB))", false},
          {R"(14, 'a', cast('{"x":"1"}' AS BLOB))", false},
          {R"(15, 'a', cast('{"x":{}}' AS BLOB))", false},
          {R"(16, 'a', cast('{"x":1e999}' AS BLOB))", false},
          {R"(17, 'a', cast('{"x":1}}' AS BLOB))", false},
          {R"(18, 'a', x'7b22ff223a317d')", false}}) {
        store.run("INSERT INTO DataEntry(timestamp, type, data) VALUES(" + std::string(record) + ")");
        if (isReadable)
            readable.push_back(std::stod(record));
        else
            ++unreadable;
    }
    const auto snapshot = Snapshot::take(directory.path());
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(verify(*snapshot)->unreadable, unreadable);
    const auto table = exportCsv(*snapshot);
    EXPECT_EQ(table->left, unreadable);
    std::vector<double> exported;
    std::istringstream rows(table->text.substr(table->text.find('\n') + 1));
    for (std::string row; std::getline(rows, row);)
        exported.push_back(std::stod(row));
    EXPECT_EQ(exported, readable);
    const auto document = decodeTrackingDataWrapper(preview(*snapshot, {.identifier = "org.example.study"})->document);
    std::vector<double> sent;
    for (const TrackingData& sample : document.value().trackingData)
        sent.push_back(sample.timestamp);
    EXPECT_EQ(sent, readable);
}

}  // namespace tarvex::tool
