#include "platform/linux/data_directory.h"

#include "platform/plist/plist_bundles.h"
#include "platform/plist/property_list_documents.h"
#include "platform/shared/handle.h"
#include "prelude.h"
#include "tarvex/platform/platform.h"

#include <sys/stat.h>

namespace tarvex::platform {
namespace {

using namespace std::string_literals;
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
    using Case = std::tuple<path, std::optional<path>, const char*, perms>;
    for (const auto& [directory, chosen, content, expected] :
         {Case{own, std::nullopt, "store", perms{0700}}, Case{root() / "empty", root() / "empty", "", perms{0700}},
          Case{root() / "filled", root() / "filled", "something", perms{0755}}}) {
        writeFile(directory / content, "");
        std::filesystem::permissions(directory, perms{0755});
        EXPECT_EQ(DataDirectory(chosen, bundles).path(), directory);
        EXPECT_EQ(permissions(directory), expected) << directory;
    }

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
    const std::string number = xmlPropertyList("<dict><key>CFBundleIdentifier</key><integer>7</integer></dict>");
    for (const std::string& contents : {informationWithIdentifier(""), xmlPropertyList("<dict/>"), number}) {
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

TEST(LinuxOptions, FillTheGapsOfTheHostsPropertyListUnlessItIsDamaged) {
    const TemporaryDirectory directory;
    const path list = directory.path() / "Info.plist";
    const auto platform = Platform::makeLinux({.dataDirectory = directory.path() / "data",
                                               .bundleDirectory = directory.path(),
                                               .bundleIdentifier = "org.example.code",
                                               .applicationName = "Code \xff",
                                               .cameraUsageDescription = ""});
    const auto host = [&]() -> std::string {
        const Bundle& bundle = platform->bundles().mainBundle();
        const auto file = bundle.pathForResource("Info", "plist");
        const auto dictionary = platform->bundles().dictionaryWithContentsOfFile(file.value());
        const bool mayMeasureDistances = dictionary && dictionary->contains("NSCameraUsageDescription");
        return bundle.bundleIdentifier().value_or("none") + " " +
               bundle.stringForInfoDictionaryKey("CFBundleDisplayName").value_or("none") +
               (mayMeasureDistances ? " camera" : "");
    };
    EXPECT_EQ(host(), "org.example.code none camera");
    writeFile(list, xmlPropertyList("<dict><key>CFBundleDisplayName</key><string>List</string></dict>"));
    EXPECT_EQ(host(), "org.example.code List camera");
    writeFile(list, xmlPropertyList("<dict><key>CFBundleIdentifier</key><integer>7</integer></dict>"));
    EXPECT_EQ(host(), "none none camera") << "an identifier that is no string is no gap";
    writeFile(list, "damaged");
    EXPECT_EQ(host(), "none none");
}

TEST(SafeFileName, IsOneNameForEachText) {
    const auto xs = [](std::size_t count) { return std::string(count, 'x'); };
    std::set<std::string> names;
    for (const std::string& text : {"org.example.light"s, "a/b"s, "a%2Fb"s, "a%252Fb"s, "."s, ".."s, "%2E"s, ".hidden"s,
                                    "ä"s, "ä b"s, "a~b"s, "a\0b"s, xs(143), xs(144), xs(300), xs(301)}) {
        const std::string name = safeFileName(text);
        EXPECT_LE(name.size(), 143U) << text;
        EXPECT_THAT(name, MatchesRegex("[a-zA-Z0-9%_~-][a-zA-Z0-9%._~-]*"));
        EXPECT_TRUE(names.insert(name).second) << text;
    }
    EXPECT_EQ(safeFileName("org.example.light"), "org.example.light");
    EXPECT_EQ(safeFileName("../a b"), "%2E.%2Fa%20b");
}

// A host is a copy of the probe, run in a process of its own.
class HostProcess : public ::testing::Test {
protected:
    HostProcess() {
        ::setenv("XDG_DATA_HOME", (prefix.path() / "data").c_str(), 1);
        std::filesystem::create_directories(executable.parent_path());
        std::filesystem::copy_file(TARVEX_BUNDLE_PROBE, executable);
    }

    // The bundle's identifier and the name of its data directory, of the bundle that is looked for, or chosen.
    static std::string run(const path& program, const std::string& chosen = {}) {
        const Handle<FILE, pclose> output(popen((program.native() + " " + chosen).c_str(), "r"));
        std::array<char, 1000> text{};
        return {text.data(), std::fread(text.data(), 1, text.size(), output.get())};
    }

    const TemporaryDirectory prefix;
    const path executable = prefix.path() / "bin/light-study";
    const path beside = prefix.path() / "bin/Info.plist";
};

TEST_F(HostProcess, FindsItsBundleBesideTheExecutableOrUnderShare) {
    EXPECT_EQ(run(executable), "none light-study\n");
    const path chosen = prefix.path() / "chosen";
    for (const path& place : {prefix.path() / "share/light-study", beside.parent_path(), chosen}) {
        const std::string identifier = "org.example." + place.filename().native();
        writeFile(place / "Info.plist", informationWithIdentifier(identifier));
        EXPECT_EQ(run(executable, place == chosen ? chosen : ""), identifier + " " + identifier + "\n");
    }
}

TEST_F(HostProcess, KeepsItsDataDirectoryWhileTheListCannotBeRead) {
    writeFile(beside, "damaged");
    EXPECT_EQ(run(executable), "none light-study\n");
    writeFile(beside, informationWithIdentifier("org.example.light"));
    EXPECT_EQ(run(executable), "org.example.light org.example.light\n");
    writeFile(beside, "damaged");
    EXPECT_EQ(run(executable), "none org.example.light\n");

    // Another place for the list is another host, though the executable is the same.
    writeFile(prefix.path() / "other/Info.plist", "damaged");
    EXPECT_EQ(run(executable, prefix.path() / "other"), "none light-study\n");
    // And so is another executable, though its name is the same.
    const path elsewhere = prefix.path() / "elsewhere/light-study";
    writeFile(elsewhere.parent_path() / "Info.plist", "damaged");
    std::filesystem::copy_file(executable, elsewhere);
    EXPECT_EQ(run(elsewhere), "none light-study\n");

    std::filesystem::remove(beside);
    EXPECT_EQ(run(executable), "none light-study\n");
}

TEST_F(HostProcess, OfAnInterpreterIsKeptApartByTheIdentifierThatItGivesInCode) {
    const path python = prefix.path() / "bin/python3.11";
    std::filesystem::copy_file(executable, python);
    EXPECT_EQ(run(python), "none python3.11\n");
    EXPECT_THAT(run(python, "- - 2>&1 >/dev/null"), HasSubstr("set LinuxOptions::bundleIdentifier"));
    EXPECT_EQ(run(executable, "- - 2>&1 >/dev/null"), "");
    for (const std::string name : {"org.example.first", "org.example.second"}) {
        EXPECT_EQ(run(python, "- " + name), name + " " + name + "\n");
        EXPECT_EQ(run(python, "- " + name + " 2>&1 >/dev/null"), "");
    }

    const path list = prefix.path() / "bundle/Info.plist";
    const std::string host = list.parent_path().native() + " org.example.code";
    EXPECT_EQ(run(python, host), "org.example.code org.example.code\n");
    writeFile(list, informationWithIdentifier("org.example.list"));
    EXPECT_EQ(run(python, host), "org.example.list org.example.list\n") << "the list wins";
    writeFile(list, "damaged");
    EXPECT_EQ(run(python, host), "none org.example.list\n");
    EXPECT_EQ(run(python, prefix.path().native() + "/other org.example.code"), "org.example.code org.example.code\n");
}

}  // namespace
}  // namespace tarvex::platform
