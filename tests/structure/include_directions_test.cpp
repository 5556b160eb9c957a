// Who may include whom: the house's arrows point from user to used.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvex {

namespace {

namespace fs = std::filesystem;

struct Include {
    std::string file;    // relative to src/ or include/
    std::string target;  // as written
    bool system;
};

const fs::path sourceRoot = TARVEX_SOURCE_DIR;

std::optional<Include> includeIn(const std::string& line, const std::string& file) {
    constexpr std::string_view directive = "#include ";
    if (!line.starts_with(directive)) return std::nullopt;
    const std::size_t begin = directive.size() + 1;
    const std::size_t end = line.find_first_of("\">", begin);
    return Include{.file = file, .target = line.substr(begin, end - begin), .system = line[begin - 1] == '<'};
}

std::vector<Include> includesOf(const fs::path& root) {
    std::vector<Include> includes;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            if (auto include = includeIn(line, fs::relative(entry.path(), root)))
                includes.push_back(std::move(*include));
        }
    }
    return includes;
}

bool isThirdParty(const std::string& target) {
    static const std::vector<std::string> prefixes{"sqlite3", "curl/",   "glib",     "gio/",     "gtk/", "plist/",
                                                   "gst/",    "xnnpack", "simdjson", "nlohmann", "glm/"};
    return std::ranges::any_of(prefixes, [&](const std::string& prefix) { return target.starts_with(prefix); });
}

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

// The subsystem that a folder belongs to: a platform module's own folders are its own business.
std::string subsystemOf(const std::string& path) {
    const std::string folder = folderOf(path);
    return folder.starts_with("platform/linux/") ? "platform/linux" : folder;
}

// The leaves of client/ include nothing above them, so that everyone may use them.
bool isClientLeaf(const std::string& target) {
    static const std::set<std::string> leaves{"client/consent_key.h", "client/user_identifier.h",
                                              "client/host_callback.h"};
    return leaves.contains(target);
}

}  // namespace

TEST(IncludeDirections, SubsystemsPointFromUserToUsed) {
    const std::map<std::string, std::set<std::string>> allowed{
        {"client", {"client", "sensors", "storage", "consent", "platform", "tarvex"}},
        {"sensors", {"sensors", "storage", "platform", "tarvex"}},
        {"storage", {"storage", "platform", "tarvex"}},
        {"consent", {"consent", "platform", "tarvex"}},
        {"platform", {"platform", "tarvex", ""}},
        {"platform/linux", {"platform/linux", "platform", "tarvex"}},
        {"testing", {"testing", "platform", "platform/linux", "tarvex", "tarvex/platform"}},
    };
    std::size_t checked = 0;
    for (const Include& include : includesOf(sourceRoot / "src")) {
        if (include.system || isClientLeaf(include.target)) continue;
        const auto rule = allowed.find(subsystemOf(include.file));
        ASSERT_NE(rule, allowed.end()) << include.file << " lies in a folder without a rule";
        const std::string target = subsystemOf(include.target);
        const bool publicHeader = target == "tarvex" || target == "tarvex/ui" || target == "tarvex/platform";
        EXPECT_TRUE(rule->second.contains(target) || publicHeader) << include.file << " includes " << include.target;
        ++checked;
    }
    EXPECT_GT(checked, 100U);
}

TEST(IncludeDirections, OnlyPlatformModulesKnowThirdPartyHeaders) {
    std::size_t found = 0;
    for (const Include& include : includesOf(sourceRoot / "src")) {
        if (!isThirdParty(include.target)) continue;
        EXPECT_TRUE(include.file.starts_with("platform/") && folderOf(include.file) != "platform")
            << include.file << " includes " << include.target;
        ++found;
    }
    EXPECT_GT(found, 5U);
    for (const Include& include : includesOf(sourceRoot / "include"))
        EXPECT_FALSE(isThirdParty(include.target)) << include.file << " includes " << include.target;
}

TEST(IncludeDirections, NoTwoFilesIncludeEachOtherInACircle) {
    std::map<std::string, std::set<std::string>> graph;
    for (const Include& include : includesOf(sourceRoot / "src")) {
        if (include.system) continue;
        // Siblings of the installed interfaces are named without their folder.
        const bool sibling = include.target.find('/') == std::string::npos;
        graph[include.file].insert(sibling ? folderOf(include.file) + "/" + include.target : include.target);
    }
    for (const Include& include : includesOf(sourceRoot / "include"))
        graph[include.file].insert(include.target);

    std::set<std::string> finished;
    std::vector<std::string> path;
    const auto visit = [&](const auto& self, const std::string& file) -> void {
        if (finished.contains(file)) return;
        ASSERT_THAT(path, ::testing::Not(::testing::Contains(file))) << "a circle of includes";
        path.push_back(file);
        for (const std::string& target : graph[file])
            self(self, target.starts_with("tarvex/platform/") ? target.substr(7) : target);
        path.pop_back();
        finished.insert(file);
    };
    std::vector<std::string> files;
    for (const auto& [file, targets] : graph)
        files.push_back(file);
    for (const std::string& file : files)
        visit(visit, file);
}

}  // namespace tarvex
