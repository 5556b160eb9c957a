#include <random>

#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::FileCall;
using test::SampleStore;

/// Knows at each moment what a power cut would leave of the files: all that was synced, and of the rest nothing, the
/// oldest part, or any part, with the last write torn. Starts without files; the database's own is there, empty, when
/// it is opened.
class PowerCutVfs final : public test::InterposedVfs {
public:
    using Files = std::map<std::string, std::string>;  ///< contents by file name

    PowerCutVfs() : InterposedVfs(false) {}

    /// Called before each call that reaches the files.
    std::function<void()> onCall = [] {};

    Files afterPowerCut(std::mt19937& random) const {
        Files left;
        for (const auto& [path, file] : files_) {
            if ((file.removed || !file.entryDurable) && random() % 2 == 0) continue;
            left.emplace(std::filesystem::path(path).filename(), remains(file, random));
        }
        return left;
    }

protected:
    int before(FileCall /*call*/) override {
        onCall();
        return SQLITE_OK;
    }
    void opened(const std::string& path) override {
        auto [file, isNew] = files_.try_emplace(path);
        if (isNew || file->second.removed) file->second = File{};
    }
    void removed(const std::string& path) override { files_[path].removed = true; }
    void written(const std::string& path, std::uint64_t offset, std::span<const char> bytes) override {
        files_[path].unsynced.push_back({offset, std::string(bytes.begin(), bytes.end())});
    }
    void truncated(const std::string& path, std::uint64_t size) override {
        files_[path].unsynced.push_back({size, std::nullopt});
    }
    void synced(const std::string& path) override {
        File& file = files_[path];
        for (const Change& change : file.unsynced)
            apply(file.durable, change);
        file.unsynced.clear();
        if (std::exchange(file.entryDurable, true)) return;
        // SQLite syncs the directory with a new file: what was removed before is gone for good.
        std::erase_if(files_, [](const auto& entry) { return entry.second.removed; });
    }

private:
    struct Change {
        std::uint64_t offset;              // or the new size
        std::optional<std::string> bytes;  // absent: a truncation
    };
    struct File {
        bool removed = false;       // may come back until the directory is synced
        bool entryDurable = false;  // else it may not be there
        std::string durable;
        std::vector<Change> unsynced;
    };

    static void apply(std::string& contents, const Change& change) {
        if (!change.bytes) return contents.resize(change.offset);
        contents.resize(std::max(contents.size(), change.offset + change.bytes->size()));
        contents.replace(change.offset, change.bytes->size(), *change.bytes);
    }
    static std::string remains(const File& file, std::mt19937& random) {
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

    std::map<std::string, File> files_;
};

/// The files after a power cut, and what must be in them.
struct Cut {
    PowerCutVfs::Files files;
    std::vector<int> acknowledged;           // the samples stored before the operation that the cut hit
    std::vector<int> complete;               // the samples if that operation came through
    std::vector<int> deleted;                // by acknowledged deletions
    std::vector<int> deletedByTheOperation;  // if it came through
};

/// Works on a store as a host does, and cuts the power now and then: the files as they would be are kept, the work goes
/// on.
std::vector<Cut> cutsDuringWork(unsigned seed, int operations) {
    std::mt19937 random(seed);
    const TemporaryDirectory directory;
    PowerCutVfs vfs;
    Cut state;
    std::vector<Cut> cuts;
    vfs.onCall = [&] {
        if (random() % 24 != 0) return;
        state.files = vfs.afterPowerCut(random);
        cuts.push_back(state);
    };
    std::unique_ptr<SampleStore> store;
    for (int i = 0, next = 0; i < operations; ++i) {
        const auto choice = store ? random() % 16 : 0;
        if (choice == 0) {
            store.reset();
            store = std::make_unique<SampleStore>(directory.path(), vfs.name());
            EXPECT_TRUE(store->open());
        } else if (choice == 1) {
            state.deletedByTheOperation = std::exchange(state.complete, {});
            EXPECT_TRUE(store->removeAll());
            std::ranges::move(state.deletedByTheOperation, std::back_inserter(state.deleted));
            state.deletedByTheOperation.clear();
            state.acknowledged.clear();
            store->context().scrub();
        } else {
            for (auto count = choice == 2 ? 1 + random() % 40 : 1; count > 0; --count) {
                store->insert(next);
                state.complete.push_back(next++);
            }
            EXPECT_TRUE(store->context().save());
            state.acknowledged = state.complete;
        }
    }
    return cuts;
}

void expectNothingLost(const Cut& cut) {
    const TemporaryDirectory directory;
    for (const auto& [name, contents] : cut.files)
        writeFile(directory.path() / name, contents);
    auto deleted = cut.deleted;
    {
        const PowerCutVfs withoutSyncs;
        SampleStore store(directory.path(), withoutSyncs.name());
        const auto opened = store.open();
        ASSERT_TRUE(opened) << opened.error().description;
        const auto numbers = store.numbers();
        ASSERT_TRUE(numbers) << numbers.error().description;
        EXPECT_TRUE(*numbers == cut.acknowledged || *numbers == cut.complete) << testing::PrintToString(*numbers);
        EXPECT_EQ(store.count(), numbers->size());
        if (*numbers == cut.complete) std::ranges::copy(cut.deletedByTheOperation, std::back_inserter(deleted));
        EXPECT_TRUE(store.add(1'000'000));
    }
    EXPECT_EQ(test::integrity(directory.path()), "ok");
    EXPECT_FALSE(test::leavesTrace(directory.path(), deleted));
}

TEST(PowerCut, LosesNoAcknowledgedSampleAndBringsNoDeletedOneBack) {
    const auto seed = randomSeed(1);
    for (unsigned run = 0; run < 6 && !HasFailure(); ++run) {
        const auto cuts = cutsDuringWork(seed + run, 120);
        ASSERT_GE(cuts.size(), 20U);
        for (std::size_t i = 0; i < cuts.size() && !HasFailure(); ++i) {
            SCOPED_TRACE(std::to_string(seed + run) + ", cut " + std::to_string(i));
            expectNothingLost(cuts[i]);
        }
    }
}

}  // namespace
}  // namespace tarvex::platform
