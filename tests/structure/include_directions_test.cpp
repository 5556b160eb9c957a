// Which folder may include which third party's headers, and that the arrows between folders run one way.

#include "prelude.h"

namespace tarvex {

namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;
using Graph = std::map<std::string, Names>;

struct Include {
    std::string file;    // relative to src/ or include/
    std::string target;  // as written
};

std::vector<Include> includes() {
    constexpr std::string_view directive = "#include ";
    std::vector<Include> includes;
    for (const char* folder : {"src", "include"}) {
        const fs::path root = fs::path(TARVEX_SOURCE_DIR) / folder;
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp") continue;
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                if (!line.starts_with(directive)) continue;
                const std::size_t begin = directive.size() + 1;
                includes.push_back({.file = fs::relative(entry.path(), root),
                                    .target = line.substr(begin, line.find_first_of("\">", begin) - begin)});
            }
        }
    }
    return includes;
}

std::string folderOf(const std::string& path) {
    return fs::path(path).parent_path();
}

// The nodes that lie on a circle, or between two.
Graph circlesOf(Graph graph) {
    const auto isAnEnd = [&](const auto& node) {
        const auto points = [](const auto& from, const std::string& to) { return from.second.contains(to); };
        return std::ranges::none_of(graph, [&](const auto& other) { return points(node, other.first); }) ||
               std::ranges::none_of(graph, [&](const auto& other) { return points(other, node.first); });
    };
    for (auto end = std::ranges::find_if(graph, isAnEnd); end != graph.end();
         end = std::ranges::find_if(graph, isAnEnd))
        graph.erase(end);
    return graph;
}

}  // namespace

TEST(IncludeDirections, EachThirdPartyIsKnownInItsOwnRoom) {
    const Graph rooms{
        {"sqlite3", {"platform/sqlite/"}},
        {"curl/", {"platform/curl/"}},
        {"glib", {"platform/glib/", "platform/plist/", "platform/linux/safe_file_name.cpp", "values/url.cpp"}},
        {"gio/", {"platform/glib/", "platform/portal/"}},
        {"gtk/", {"platform/gtk/"}},
        {"gdk/", {"platform/gtk/"}},
        {"gsk/", {"platform/gtk/"}},
        {"plist/", {"platform/plist/"}},
        {"simdjson", {"platform/json/", "platform/plist/"}},
        {"nlohmann/", {"platform/json/", "platform/sqlite/"}},
        {"gst/", {"platform/camera/capture/"}},
        {"xnnpack", {"platform/camera/vision/neural_network.cpp"}},
        {"Eigen/", {"platform/camera/vision/"}},
        {"tflite_generated", {"platform/camera/vision/tflite_model.cpp"}},
    };
    Names found;
    for (const Include& include : includes()) {
        for (const auto& [prefix, places] : rooms) {
            if (!include.target.starts_with(prefix)) continue;
            found.insert(prefix);
            EXPECT_TRUE(std::ranges::any_of(places, [&](auto& place) { return include.file.starts_with(place); }))
                << include.file << " includes " << include.target;
        }
    }
    EXPECT_GT(found.size(), 10U);
}

TEST(IncludeDirections, WhatSeesAFrameCanNeitherWriteNorSendIt) {
    std::size_t checked = 0;
    for (const Include& include : includes()) {
        if (!include.file.starts_with("platform/camera/vision/")) continue;
        for (const char* outside :
             {"fstream", "iostream", "print", "cstdio", "sys/", "unistd.h", "fcntl.h", "netinet/"})
            EXPECT_FALSE(include.target.starts_with(outside)) << include.file << " includes " << include.target;
        ++checked;
    }
    EXPECT_GT(checked, 20U);
}

TEST(IncludeDirections, NeitherFilesNorFoldersIncludeEachOtherInACircle) {
    Graph files;
    std::map<std::string, std::string> folderOfStem;  // an installed header belongs to the folder of its source
    for (const Include& include : includes()) {
        files[include.file].insert(include.target);
        if (include.file.ends_with(".cpp")) folderOfStem[fs::path(include.file).stem()] = folderOf(include.file);
    }
    const auto room = [&](const std::string& path) {
        const auto source = folderOfStem.find(fs::path(path).stem());
        return folderOf(path) == "tarvex" && source != folderOfStem.end() ? source->second : folderOf(path);
    };
    Graph folders;
    for (const auto& [file, targets] : files) {
        for (const std::string& target : targets)
            if (files.contains(target) && room(target) != room(file)) folders[room(file)].insert(room(target));
    }
    EXPECT_GT(folders.size(), 10U);
    EXPECT_THAT(circlesOf(files), IsEmpty());
}

}  // namespace tarvex
