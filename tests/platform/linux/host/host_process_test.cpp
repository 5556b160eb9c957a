#include <glib.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "property_list_documents.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using namespace test;
using std::filesystem::path;

// A host is a copy of the probe, run in a process of its own.
class Host {
public:
    Host(path prefix, const std::string& name) : prefix_(std::move(prefix)), executable_(prefix_ / "bin" / name) {
        std::filesystem::create_directories(prefix_ / "bin");
        std::filesystem::copy_file(TARVEX_BUNDLE_PROBE, executable_);
    }

    path beside() const { return prefix_ / "bin/Info.plist"; }
    path shared() const { return prefix_ / "share" / executable_.filename() / "Info.plist"; }

    std::string run(const std::string& argument = {}) const {
        ::setenv("XDG_DATA_HOME", (prefix_ / "data").c_str(), 1);
        std::string executable = executable_;
        std::string chosen = argument;
        std::array<gchar*, 3> arguments{executable.data(), chosen.empty() ? nullptr : chosen.data(), nullptr};
        gchar* output = nullptr;
        g_spawn_sync("/", arguments.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &output, nullptr, nullptr,
                     nullptr);
        const std::unique_ptr<gchar, decltype([](gchar* text) { g_free(text); })> line(output);
        return line ? line.get() : "";
    }

private:
    path prefix_;
    path executable_;
};

TEST(HostProcess, FindsItsBundleBesideTheExecutableOrUnderShare) {
    const TemporaryDirectory prefix;
    const Host host(prefix.path(), "light-study");
    EXPECT_EQ(host.run(), "none light-study\n");

    writeFile(host.shared(), informationWithIdentifier("org.example.shared"));
    EXPECT_EQ(host.run(), "org.example.shared org.example.shared\n");
    writeFile(host.beside(), informationWithIdentifier("org.example.beside"));
    EXPECT_EQ(host.run(), "org.example.beside org.example.beside\n");
    writeFile(prefix.path() / "chosen/Info.plist", informationWithIdentifier("org.example.chosen"));
    EXPECT_EQ(host.run(prefix.path() / "chosen"), "org.example.chosen org.example.chosen\n");
}

TEST(HostProcess, KeepsItsDataDirectoryWhileTheListCannotBeRead) {
    const TemporaryDirectory prefix;
    const Host host(prefix.path(), "light-study");
    writeFile(host.beside(), "damaged");
    EXPECT_EQ(host.run(), "none light-study\n");

    writeFile(host.beside(), informationWithIdentifier("org.example.light"));
    EXPECT_EQ(host.run(), "org.example.light org.example.light\n");
    writeFile(host.beside(), "damaged");
    EXPECT_EQ(host.run(), "none org.example.light\n");

    // Another place for the list is another host, though the executable is the same.
    writeFile(prefix.path() / "other/Info.plist", "damaged");
    EXPECT_EQ(host.run(prefix.path() / "other"), "none light-study\n");

    std::filesystem::remove(host.beside());
    EXPECT_EQ(host.run(), "none light-study\n");
}

}  // namespace
}  // namespace tarvex::platform
