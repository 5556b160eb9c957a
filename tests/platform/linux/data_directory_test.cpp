#include "platform/linux/data_directory.h"

#include "platform/plist/plist_bundles.h"
#include "platform/plist/property_list_documents.h"
#include "prelude.h"

#include <sys/stat.h>

namespace tarvex::platform {
namespace {

using namespace test;
using std::filesystem::path;
using std::filesystem::perms;

perms permissions(const path& directory) {
    return std::filesystem::status(directory).permissions();
}

class DataDirectoryTest : public testing::Test {
protected:
    DataDirectoryTest() {
        ::setenv("XDG_DATA_HOME", (root() / "data").c_str(), 1);
        writeFile(list(), informationWithIdentifier("org.example.light"));
    }

    const path& root() const { return root_.path(); }
    path list() const { return root() / "bundle/Info.plist"; }

    // A later start of the host: nothing but the disk is remembered.
    path directoryOfNextStart() const {
        const PlistBundles bundles(root() / "bundle");
        return DataDirectory(std::nullopt, bundles).path();
    }

    const path executable = std::filesystem::read_symlink("/proc/self/exe").filename();

private:
    TemporaryDirectory root_;
};

TEST_F(DataDirectoryTest, IsForThisUserAloneUnlessTheHostFilledItItself) {
    const PlistBundles bundles(root() / "bundle");
    const path own = root() / "data/org.example.light";
    const path empty = root() / "empty";
    const path filled = root() / "filled";
    writeFile(own / "store", "");
    writeFile(filled / "something", "");
    std::filesystem::create_directory(empty);
    for (const path& directory : {own, empty, filled})
        std::filesystem::permissions(directory, perms{0755});
    EXPECT_EQ(directoryOfNextStart(), own);
    EXPECT_EQ(DataDirectory(empty, bundles).path(), empty);
    EXPECT_EQ(DataDirectory(filled, bundles).path(), filled);
    EXPECT_EQ(permissions(own), perms{0700});
    EXPECT_EQ(permissions(empty), perms{0700});
    EXPECT_EQ(permissions(filled), perms{0755});

    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        ::umask(mask);
        const path top = root() / std::to_string(mask);
        ::setenv("XDG_DATA_HOME", (top / "data").c_str(), 1);
        EXPECT_EQ(directoryOfNextStart(), top / "data/org.example.light");
        for (const char* created : {"data/org.example.light", "data", "", "data/tarvex/hosts"})
            EXPECT_EQ(permissions(top / created), perms{0700}) << created;
    }
}

TEST_F(DataDirectoryTest, IsDecidedOnceForAllThreads) {
    const PlistBundles bundles(root() / "bundle");
    DataDirectory directory(std::nullopt, bundles);
    std::vector<std::future<path>> seen(4);
    for (auto& result : seen)
        result = std::async(std::launch::async, [&] { return directory.path(); });
    for (auto& result : seen)
        EXPECT_EQ(result.get(), root() / "data/org.example.light");

    writeFile(list(), informationWithIdentifier("org.example.renamed"));
    EXPECT_EQ(directory.path(), root() / "data/org.example.light");
    EXPECT_EQ(directoryOfNextStart(), root() / "data/org.example.renamed");
}

TEST_F(DataDirectoryTest, TakesTheExecutablesNameWithoutAUsableIdentifier) {
    for (const std::string& contents :
         {informationWithIdentifier(""), xmlPropertyList("<dict/>"),
          xmlPropertyList("<dict><key>CFBundleIdentifier</key><integer>7</integer></dict>")}) {
        writeFile(list(), contents);
        EXPECT_EQ(directoryOfNextStart(), root() / "data" / executable) << contents;
    }
    ::setenv("XDG_DATA_HOME", "relative", 1);  // no data home at all
    ::setenv("HOME", (root() / "home").c_str(), 1);
    EXPECT_EQ(directoryOfNextStart(), root() / "home/.local/share" / executable);
}

TEST_F(DataDirectoryTest, SurvivesARecordThatIsForgedOrCannotBeWritten) {
    directoryOfNextStart();
    for (const auto& record : std::filesystem::directory_iterator(root() / "data/tarvex/hosts")) {
        std::filesystem::remove(record);
        std::filesystem::create_symlink("/etc", record);
    }
    writeFile(list(), "damaged");
    EXPECT_EQ(directoryOfNextStart(), root() / "data" / executable);

    std::filesystem::remove_all(root() / "data/tarvex");
    writeFile(root() / "data/tarvex", "in the way");
    writeFile(list(), informationWithIdentifier("org.example.light"));
    EXPECT_EQ(directoryOfNextStart(), root() / "data/org.example.light");
}

TEST(SafeFileName, IsOneNameForEachText) {
    std::set<std::string> texts{
        "org.example.light",   "a/b", "a%2Fb", "a%252Fb", ".", "..", "%2E", ".hidden", "ä", "ä b", "a~b",
        std::string("a\0b", 3)};
    for (const std::size_t length : {143, 144, 300, 301})
        texts.insert(std::string(length, 'x'));
    std::set<std::string> names;
    for (const std::string& text : texts) {
        const std::string name = safeFileName(text);
        names.insert(name);
        EXPECT_LE(name.size(), 143U) << text;
        EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789%.-_~"),
                  std::string::npos)
            << text;
        EXPECT_FALSE(name.starts_with('.')) << text;
    }
    EXPECT_EQ(names.size(), texts.size());
    EXPECT_EQ(safeFileName("org.example.light"), "org.example.light");
    EXPECT_EQ(safeFileName("../a b"), "%2E.%2Fa%20b");
}

}  // namespace
}  // namespace tarvex::platform
