// The include lines of src/ and include/: which folder knows which third party, and no circles.

#include "prelude.h"

namespace tarvex {
namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;
using Graph = std::map<std::string, Names>;

/// What each file includes: a file of the project by its path, a header of others with its opening bracket.
Graph includesBelow(const std::vector<fs::path>& roots) {
    Graph found;
    for (const fs::path& root : roots) {
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp") continue;
            Names& targets = found[fs::relative(entry.path(), root)];
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                if (!line.starts_with("#include ")) continue;
                const std::string target = line.substr(9, line.find_first_of("\">", 10) - 9);
                targets.insert(target.substr(target.front() == '"' ? 1 : 0));
            }
        }
    }
    return found;
}

const Graph& includes() {
    static const Graph files = includesBelow({TARVEX_SOURCE_DIR "/src", TARVEX_SOURCE_DIR "/include"});
    return files;
}

/// The nodes that lie on a circle, or between two.
Graph circlesOf(Graph graph) {
    const auto isAnEnd = [&](const auto& node) {
        const auto points = [](const auto& from, const std::string& to) { return from.second.contains(to); };
        return std::ranges::none_of(graph, [&](const auto& other) { return points(node, other.first); }) ||
               std::ranges::none_of(graph, [&](const auto& other) { return points(other, node.first); });
    };
    for (auto end = graph.begin(); (end = std::ranges::find_if(graph, isAnEnd)) != graph.end();)
        graph.erase(end);
    return graph;
}

TEST(Includes, EachFolderKnowsItsOwnThirdPartiesAndWhatSeesAFrameCanNeitherWriteNorSendIt) {
    const auto withSystem = [](Names thirdParties) {
        thirdParties.insert({"<cstdio", "<dirent.h", "<dlfcn.h", "<fcntl.h", "<fstream", "<iostream", "<libintl.h",
                             "<link.h", "<linux/", "<netinet/", "<pthread.h", "<pwd.h", "<sys/", "<unistd.h"});
        return thirdParties;
    };
    const Graph allowed{
        {"", {}},
        {"client/sender.cpp", {"<sys/utsname.h"}},
        {"platform/", withSystem({})},
        {"platform/camera/capture/", withSystem({"<gst/"})},
        {"platform/camera/pipewire/", withSystem({"<pipewire/", "<spa/"})},
        {"platform/camera/vision/", {"<Eigen/", "<xnnpack.h"}},
        {"platform/curl/", withSystem({"<curl/"})},
        {"platform/glib/", withSystem({"<gio/", "<glib"})},
        {"platform/gtk/", withSystem({"<gtk/"})},
        {"platform/json/", {"<simdjson.h"}},
        {"platform/plist/", withSystem({"<plist/"})},
        {"platform/portal/", withSystem({"<gio/"})},
        {"platform/sqlite/", withSystem({"<sqlite3.h"})},
        {"values/", {"<arpa/", "<sys/random.h"}},
    };
    std::size_t checked = 0;
    for (const auto& [file, targets] : includes()) {
        // Of the rows that hold the file, the deepest folder comes last.
        const auto row = std::ranges::find_if(allowed.rbegin(), allowed.rend(),
                                              [&file](auto& candidate) { return file.starts_with(candidate.first); });
        for (const std::string& target : targets) {
            const bool isStandard = target.find_first_of("./") == std::string::npos && !withSystem({}).contains(target);
            if (!target.starts_with('<') || isStandard) continue;
            EXPECT_TRUE(std::ranges::any_of(row->second, [&](auto& prefix) { return target.starts_with(prefix); }))
                << file << " includes " << target << ">";
            ++checked;
        }
    }
    EXPECT_GT(checked, 50U);
}

TEST(Includes, NeitherFilesNorFoldersIncludeEachOtherInACircle) {
    std::map<std::string, std::string> folderOfStem;  // an installed header belongs to the folder of its source
    for (const auto& [file, targets] : includes())
        if (file.ends_with(".cpp")) folderOfStem[fs::path(file).stem()] = fs::path(file).parent_path();
    const auto folderOf = [&](const fs::path& path) -> std::string {
        const auto source = folderOfStem.find(path.stem());
        return path.parent_path() == "tarvex" && source != folderOfStem.end() ? source->second
                                                                              : path.parent_path().string();
    };
    Graph folders;
    for (const auto& [file, targets] : includes())
        for (const std::string& target : targets)
            if (includes().contains(target) && folderOf(target) != folderOf(file))
                folders[folderOf(file)].insert(folderOf(target));
    EXPECT_GT(folders.size(), 10U);
    EXPECT_THAT(circlesOf(includes()), IsEmpty());
    EXPECT_THAT(circlesOf(folders), IsEmpty());
}

TEST(Includes, OtherLanguagesAreServedOverTheInstalledHeadersAlone) {
    const Graph bindings = includesBelow({TARVEX_SOURCE_DIR "/bindings/gobject"});
    Names own;
    for (const auto& [file, targets] : bindings)
        own.insert(fs::path(file).filename());
    for (const auto& [file, targets] : bindings)
        for (const std::string& target : targets)
            EXPECT_TRUE(target.starts_with('<') || own.contains(target) ||
                        fs::exists(TARVEX_SOURCE_DIR "/include/" + target))
                << file << " includes " << target;
    EXPECT_GT(bindings.size(), 10U);
}

}  // namespace
}  // namespace tarvex
