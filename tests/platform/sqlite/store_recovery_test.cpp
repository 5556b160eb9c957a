// The recipe of docs/integration.md for a damaged store.

#include <cstdlib>

#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::SampleStore;

/// The recipe's commands, for a store of another name.
std::string recipe() {
    const std::string document = contentsOf(TARVEX_SOURCE_DIR "/docs/integration.md");
    const auto begin = document.find("\ncd <data directory>\n");
    std::string commands = document.substr(document.find('\n', begin + 1), document.find("\n```", begin) - begin);
    const std::string name = "TrackingDataContainer.sqlite";
    for (auto at = commands.find(name); at != std::string::npos; at = commands.find(name, at))
        commands.replace(at, name.size(), SampleStore::fileName);
    return commands.substr(0, commands.find("\n```"));
}

TEST(StoreRecovery, TheDocumentedRecipeSavesWhatADamagedStoreStillHolds) {
    constexpr int samples = 300;
    const TemporaryDirectory directory;
    const auto data = directory.path() / "data";
    const auto file = data / SampleStore::fileName;
    std::filesystem::create_directory(data);
    test::fillStore(data, test::range(0, samples));
    constexpr int pageSize = 4096;
    const std::string leaf = test::OtherProgram(file).run(
        "SELECT pageno FROM dbstat WHERE name = 'DataEntry' AND pagetype = 'leaf' ORDER BY path LIMIT 1 OFFSET 4");
    std::fstream(file, std::ios::binary | std::ios::in | std::ios::out).seekp((std::stoi(leaf) - 1) * pageSize)
        << std::string(pageSize, '\0');
    {
        SampleStore store(data);
        ASSERT_TRUE(store.open()) << "it takes samples, of which nothing can be uploaded or deleted";
        EXPECT_THAT(store.numbers().error().description, HasSubstr(file.native()));
        EXPECT_FALSE(store.removeAll());
    }
    test::OtherProgram(file).run("DELETE FROM _scrub");
    EXPECT_FALSE(SampleStore(data).open());
    writeFile(directory.path() / "recipe", recipe());
    const std::string command = "cd " + data.native() + " && sh ../recipe >../log 2>&1";
    std::ignore = std::system(command.c_str());
    SCOPED_TRACE(contentsOf(directory.path() / "log"));

    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    SampleStore store(data);
    ASSERT_TRUE(store.open() && store.add(samples));
    const std::vector<int> saved = store.numbers().value();
    EXPECT_TRUE(std::ranges::is_sorted(saved, std::less_equal()) && saved.front() == 0 && saved.back() == samples);
    EXPECT_TRUE(saved.size() > samples - 50 && saved.size() < samples) << "all but a page";
    EXPECT_EQ(store.count(), saved.size()) << "their numbers have no gaps";
    EXPECT_EQ(test::integrity(data), "ok");
}

}  // namespace
}  // namespace tarvex::platform
