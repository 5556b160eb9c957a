// What docs/integration.md says of a damaged store, done as it stands there.

#include <sys/stat.h>

#include <cstdlib>

#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using std::filesystem::path;
using test::SampleStore;

constexpr int samples = 300;

/// As a disk does that lost what was written there.
void loseLeaf(const path& file, const std::string& which) {
    const std::string page = test::OtherProgram(file).run(
        "SELECT pageno FROM dbstat WHERE name = 'DataEntry' AND pagetype = 'leaf' ORDER BY path " + which);
    constexpr int pageSize = 4096;
    std::fstream(file, std::ios::binary | std::ios::in | std::ios::out).seekp((std::stoi(page) - 1) * pageSize)
        << std::string(pageSize, '\0');
}

/// The recipe's commands, for a store of another name.
std::string recipe() {
    const std::string document = contentsOf(path(TARVEX_SOURCE_DIR) / "docs/integration.md");
    const std::string first = "\ncd <data directory>\n";
    const auto begin = document.find(first);
    if (begin == std::string::npos) throw std::runtime_error("the document has no recipe");
    std::string commands = document.substr(begin + first.size(), document.find("\n```", begin) - begin - first.size());
    const std::string name = "TrackingDataContainer.sqlite";
    for (auto at = commands.find(name); at != std::string::npos; at = commands.find(name, at))
        commands.replace(at, name.size(), SampleStore::fileName);
    return commands;
}

/// Its output, for a test that fails.
std::string recover(const path& data) {
    const path script = data.parent_path() / "recipe";
    const path log = data.parent_path() / "log";
    writeFile(script, recipe());
    std::ignore =
        std::system(("cd " + data.native() + " && sh " + script.native() + " >" + log.native() + " 2>&1").c_str());
    return contentsOf(log);
}

TEST(StoreRecovery, TheDocumentedRecipeSavesWhatADamagedStoreStillHolds) {
    struct Case {
        const char* leaf;
        const char* lost;
        bool opens;  // and goes on taking samples, of which nothing can be uploaded or deleted
    };
    for (const auto& [leaf, lost, opens] : {Case{"DESC LIMIT 1", "", false}, Case{"LIMIT 1 OFFSET 4", "", true},
                                            Case{"LIMIT 1 OFFSET 4", "DELETE FROM _scrub", false}}) {
        const TemporaryDirectory directory;
        const path data = directory.path() / "data";
        const path file = data / SampleStore::fileName;
        std::filesystem::create_directory(data);
        {
            SampleStore store(data);
            ASSERT_TRUE(store.open() && store.addAll(test::range(0, samples)));
        }
        loseLeaf(file, leaf);
        test::OtherProgram(file).run(lost);
        {
            SampleStore store(data);
            EXPECT_EQ(store.open().has_value(), opens);
            EXPECT_FALSE(opens && (store.numbers() || store.removeAll())) << "or this test recovers what is whole";
        }
        SCOPED_TRACE(recover(data));

        SampleStore store(data);
        ASSERT_TRUE(store.open());
        ASSERT_TRUE(store.add(samples));
        const std::vector<int> saved = store.numbers().value();
        EXPECT_TRUE(std::ranges::is_sorted(saved, std::less_equal()) && saved.front() == 0 && saved.back() == samples);
        EXPECT_THAT(saved, SizeIs(::testing::AllOf(::testing::Gt(samples - 50), ::testing::Lt(samples))))
            << "all but a page";
        EXPECT_EQ(store.count(), saved.size()) << "their numbers have no gaps";
        EXPECT_EQ(test::integrity(data), "ok");
        struct stat status{};
        EXPECT_EQ(::stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U);
    }
}

}  // namespace
}  // namespace tarvex::platform
