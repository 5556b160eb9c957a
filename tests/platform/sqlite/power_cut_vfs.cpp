#include "power_cut_vfs.h"

namespace tarvex::test {

int PowerCutVfs::before(FileCall /*call*/) {
    if (onCall) onCall();
    return SQLITE_OK;
}

void PowerCutVfs::opened(const std::string& path) {
    auto [file, isNew] = files_.try_emplace(path);
    if (isNew || file->second.removed) file->second = File{};
}

void PowerCutVfs::synced(const std::string& path) {
    File& file = files_[path];
    for (const Change& change : file.unsynced)
        apply(file.durable, change);
    file.unsynced.clear();
    if (std::exchange(file.entryDurable, true)) return;
    // SQLite syncs the directory with a new file: what was removed before is gone for good.
    std::erase_if(files_, [](const auto& entry) { return entry.second.removed; });
}

void PowerCutVfs::apply(std::string& contents, const Change& change) {
    if (!change.bytes) {
        contents.resize(change.offset);
        return;
    }
    contents.resize(std::max(contents.size(), change.offset + change.bytes->size()));
    contents.replace(change.offset, change.bytes->size(), *change.bytes);
}

std::string PowerCutVfs::remains(const File& file, std::mt19937& random) {
    enum : std::uint8_t { nothing, oldest, anything, ways };
    const auto way = random() % ways;
    const auto kept = way == oldest ? random() % (file.unsynced.size() + 1) : file.unsynced.size();
    std::string contents = file.durable;
    for (std::size_t i = 0; way != nothing && i < kept; ++i) {
        if (way == anything && random() % 2 == 0) continue;
        Change change = file.unsynced[i];
        if (change.bytes && i + 1 == kept) change.bytes->resize(random() % (change.bytes->size() + 1));
        apply(contents, change);
    }
    return contents;
}

PowerCutVfs::Files PowerCutVfs::afterPowerCut(std::mt19937& random) const {
    Files left;
    for (const auto& [path, file] : files_) {
        if ((file.removed || !file.entryDurable) && random() % 2 == 0) continue;
        left.emplace(std::filesystem::path(path).filename(), remains(file, random));
    }
    return left;
}

}  // namespace tarvex::test
