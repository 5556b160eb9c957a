// Who may include whom: the house's arrows point from user to used.

#include "prelude.h"

namespace tarvex {

namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

struct Include {
    std::string file;    // relative to src/ or include/
    std::string target;  // as written
    bool system;
};

std::vector<Include> includesOf(const char* folder) {
    const fs::path root = fs::path(TARVEX_SOURCE_DIR) / folder;
    constexpr std::string_view directive = "#include ";
    std::vector<Include> includes;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            if (!line.starts_with(directive)) continue;
            const std::size_t begin = directive.size() + 1;
            includes.push_back({.file = fs::relative(entry.path(), root),
                                .target = line.substr(begin, line.find_first_of("\">", begin) - begin),
                                .system = line[begin - 1] == '<'});
        }
    }
    return includes;
}

bool isThirdParty(const std::string& target) {
    static const Names prefixes{"sqlite3", "curl/", "glib",    "gio/",     "gtk/",     "gdk/", "gsk/",
                                "plist/",  "gst/",  "xnnpack", "simdjson", "nlohmann", "glm/", "Eigen/"};
    return std::ranges::any_of(prefixes, [&](const std::string& prefix) { return target.starts_with(prefix); });
}

std::string folderOf(const std::string& path) {
    return fs::path(path).parent_path();
}

// The subsystem that a folder belongs to: a platform module's own folders are its own business.
std::string subsystemOf(const std::string& path) {
    const std::string folder = folderOf(path);
    for (const char* module : {"platform/linux", "platform/camera"}) {
        if (folder.starts_with(std::string(module) + "/")) return module;
    }
    return folder;
}

}  // namespace

TEST(IncludeDirections, SubsystemsPointFromUserToUsed) {
    // The leaves of client/ include nothing above them, so that everyone may use them.
    const Names clientLeaves{"client/consent_key.h", "client/user_identifier.h", "client/host_callback.h"};
    const Names publicFolders{"tarvex", "tarvex/ui", "tarvex/platform"};
    const std::map<std::string, Names> allowed{
        {"client", {"client", "sensors", "storage", "consent", "platform"}},
        {"sensors", {"sensors", "storage", "platform"}},
        {"storage", {"storage", "platform"}},
        {"consent", {"consent", "platform"}},
        {"platform", {"platform", ""}},
        {"platform/posix", {"platform/posix"}},
        {"platform/linux", {"platform/linux", "platform/posix", "platform"}},
        {"platform/camera", {"platform/camera", "platform/posix", "platform"}},
        {"platform/gtk", {"platform/gtk"}},
        {"testing", {"testing", "platform", "platform/linux"}},
    };
    std::size_t checked = 0;
    for (const Include& include : includesOf("src")) {
        if (include.system || clientLeaves.contains(include.target)) continue;
        const auto rule = allowed.find(subsystemOf(include.file));
        ASSERT_NE(rule, allowed.end()) << include.file << " lies in a folder without a rule";
        const std::string target = subsystemOf(include.target);
        EXPECT_TRUE(rule->second.contains(target) || publicFolders.contains(target))
            << include.file << " includes " << include.target;
        ++checked;
    }
    EXPECT_GT(checked, 100U);
}

TEST(IncludeDirections, OnlyPlatformModulesKnowThirdPartyHeaders) {
    std::size_t found = 0;
    for (const Include& include : includesOf("src")) {
        if (!isThirdParty(include.target)) continue;
        EXPECT_TRUE(include.file.starts_with("platform/") && folderOf(include.file) != "platform")
            << include.file << " includes " << include.target;
        ++found;
    }
    EXPECT_GT(found, 5U);
    for (const Include& include : includesOf("include"))
        EXPECT_FALSE(isThirdParty(include.target)) << include.file << " includes " << include.target;
}

// None of these can write a file, send anything or reach a camera.
bool mayLookAtFrames(const std::string& target) {
    static const Names standard{"algorithm",   "array",    "bit",    "cmath",     "cstddef",
                                "cstdint",     "cstring",  "deque",  "expected",  "filesystem",
                                "functional",  "limits",   "map",    "memory",    "numbers",
                                "numeric",     "optional", "set",    "span",      "string",
                                "string_view", "utility",  "vector", "xnnpack.h", "platform/face_tracking.h"};
    return standard.contains(target) || target.starts_with("platform/camera/vision/") || target.starts_with("Eigen/") ||
           target.starts_with("glm/");
}

// A release of XNNPACK with another interface is one file's business.
TEST(IncludeDirections, InferenceIsInOneFileAndVisionKnowsNeitherCameraNorFiles) {
    Names inference;
    for (const Include& include : includesOf("src")) {
        if (include.target == "xnnpack.h") inference.insert(include.file);
        if (!include.file.starts_with("platform/camera/vision/")) continue;
        const bool readsModels = include.file == "platform/camera/vision/face_models.cpp";
        EXPECT_TRUE(readsModels || mayLookAtFrames(include.target)) << include.file << " includes " << include.target;
    }
    EXPECT_THAT(inference, ElementsAre("platform/camera/vision/neural_network.cpp"));
}

TEST(IncludeDirections, OnlyTheGtkModuleKnowsGtk) {
    const Names toolkit{"gtk/", "gdk/", "gsk/"};
    std::size_t found = 0;
    for (const Include& include : includesOf("src")) {
        const auto begins = [&](const std::string& prefix) { return include.target.starts_with(prefix); };
        if (std::ranges::none_of(toolkit, begins)) continue;
        EXPECT_EQ(folderOf(include.file), "platform/gtk") << include.file << " includes " << include.target;
        ++found;
    }
    EXPECT_GT(found, 5U);
}

TEST(IncludeDirections, NoTwoFilesIncludeEachOtherInACircle) {
    std::map<std::string, Names> graph;
    for (const char* folder : {"src", "include"}) {
        for (const Include& include : includesOf(folder)) {
            if (include.system) continue;
            // Siblings of the installed interfaces are named without their folder.
            const bool sibling = !include.target.contains('/');
            graph[include.file].insert(sibling ? folderOf(include.file) + "/" + include.target : include.target);
        }
    }
    // Files that include none that is left have no part in a circle.
    const auto includesNoneOf = [&](const auto& entry) {
        return std::ranges::none_of(entry.second, [&](const std::string& target) {
            return graph.contains(target.starts_with("tarvex/platform/") ? target.substr(7) : target);
        });
    };
    EXPECT_GT(graph.size(), 100U);
    while (std::erase_if(graph, includesNoneOf) > 0) {
    }
    EXPECT_TRUE(graph.empty()) << ::testing::PrintToString(graph) << " are or lead to a circle";
}

}  // namespace tarvex
