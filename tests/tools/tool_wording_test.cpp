// The sentences of the program tarvex, for none, one and several.

#include "platform/sqlite/sample_store.h"
#include "prelude.h"
#include "tool_process.h"

namespace tarvex::tool {

TEST(ToolWording, CountsNoneOneAndSeveral) {
    const TemporaryDirectory directory;
    const auto data = directory.path() / "data";
    std::filesystem::create_directory(data);
    platform::SqliteObjectStore objects([&] { return data; });
    ASSERT_TRUE(objects.makeContainer("TrackingDataContainer")->loadPersistentStores());
    const auto insert = [&](const char* record) {
        test::OtherProgram(data / "TrackingDataContainer.sqlite")
            .run("INSERT INTO DataEntry(timestamp, type, data) VALUES(" + std::string(record) + ")");
    };
    struct Words {
        const char* verified;
        const char* problem;
        const char* left;
        const char* recovered;
        const char* doctor;
    };
    const std::array wordsFor{
        Words{"0 readable records; the store is whole.\n", "", "", "0 records are in ",
              "it is whole and holds nothing"},
        Words{"1 readable record, from ", "1 record cannot be read; uploads leave it out.\n",
              "1 record cannot be read, and was left out.\n", "2 records are in ", "1 record cannot be read"},
        Words{"2 readable records, from ", "2 records cannot be read; uploads leave them out.\n",
              "2 records cannot be read, and were left out.\n", "4 records are in ", "2 records cannot be read"}};
    for (std::size_t count = 0; count < wordsFor.size(); ++count) {
        const auto& [verified, problem, left, recovered, doctor] = wordsFor.at(count);
        const auto verification = run({"verify", "--data", data});
        EXPECT_THAT(verification.output, ::testing::StartsWith(verified));
        EXPECT_EQ(verification.errors, problem);
        EXPECT_EQ(run({"export", "--csv", "--data", data}).errors, left);
        const auto fresh = directory.path() / ("fresh" + std::to_string(count));
        EXPECT_THAT(run({"recover", "--data", data, "--output", fresh}).output, ::testing::StartsWith(recovered));
        EXPECT_THAT(run({"doctor", "--measures", "light", "--data", data}).output, HasSubstr(doctor));
        insert("1, 'a', x'7b7d'");
        if (count == 0) {
            EXPECT_THAT(run({"doctor", "--measures", "light", "--data", data}).output,
                        HasSubstr("holds 1 sample, from 1970-01-01T00:00:01.000000Z to 1970-01-01T00:00:01.000000Z, "
                                  "which waits for an upload"));
            EXPECT_THAT(run({"recover", "--data", data, "--output", directory.path() / "one"}).output,
                        ::testing::StartsWith("1 record is in "));
        }
        insert("NULL, NULL, NULL");
    }
}

}  // namespace tarvex::tool
