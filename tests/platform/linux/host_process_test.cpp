#include <cstdio>

#include "platform/plist/property_list_documents.h"
#include "platform/shared/handle.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using std::filesystem::path;
using test::informationWithIdentifier;

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
        std::array<char, 200> line{};
        return std::fgets(line.data(), line.size(), output.get()) == nullptr ? "" : line.data();
    }

    TemporaryDirectory prefix;
    const path executable = prefix.path() / "bin/light-study";
    const path beside = prefix.path() / "bin/Info.plist";
};

TEST_F(HostProcess, FindsItsBundleBesideTheExecutableOrUnderShare) {
    EXPECT_EQ(run(executable), "none light-study\n");
    writeFile(prefix.path() / "share/light-study/Info.plist", informationWithIdentifier("org.example.shared"));
    EXPECT_EQ(run(executable), "org.example.shared org.example.shared\n");
    writeFile(beside, informationWithIdentifier("org.example.beside"));
    EXPECT_EQ(run(executable), "org.example.beside org.example.beside\n");
    writeFile(prefix.path() / "chosen/Info.plist", informationWithIdentifier("org.example.chosen"));
    EXPECT_EQ(run(executable, prefix.path() / "chosen"), "org.example.chosen org.example.chosen\n");
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

}  // namespace
}  // namespace tarvex::platform
