#pragma once

#include "interposed_vfs.h"
#include "platform/sqlite/sqlite_object_store.h"
#include "prelude.h"

namespace tarvex::test {

/// A file system that fails when told: at one call, or at all of some kind until it is healed. Counts calls.
class FaultyVfs final : public InterposedVfs {
public:
    /// The `n`th call from now on fails (1 is the next), as a full disk does when it writes, else as an I/O error.
    void failCall(int n) {
        calls_ = 0;
        failing_ = n;
    }
    /// Every `call` returns `code` until `heal`.
    void failEvery(FileCall call, int code) { broken_ = {call, code}; }
    void heal() {
        failing_ = never;
        broken_.second = SQLITE_OK;
    }

    /// True once the call that `failCall` names was made.
    bool reached() const { return calls_ >= failing_; }
    int count(FileCall call) const { return counts_.at(static_cast<std::size_t>(call)); }

protected:
    int before(FileCall call) override {
        // In the order of `FileCall`.
        static constexpr std::array failures{
            SQLITE_CANTOPEN,    SQLITE_IOERR_DELETE, SQLITE_IOERR_READ, SQLITE_FULL,         SQLITE_IOERR_TRUNCATE,
            SQLITE_IOERR_FSYNC, SQLITE_IOERR_FSTAT,  SQLITE_IOERR_LOCK, SQLITE_IOERR_SHMMAP, SQLITE_IOERR_SHMLOCK};
        const auto place = static_cast<std::size_t>(call);
        ++counts_.at(place);
        if (broken_.second != SQLITE_OK && call == broken_.first) return broken_.second;
        return ++calls_ == failing_ ? failures.at(place) : SQLITE_OK;
    }

private:
    static constexpr int never = std::numeric_limits<int>::max();

    int calls_ = 0;
    int failing_ = never;
    std::array<int, 10> counts_{};
    std::pair<FileCall, int> broken_{FileCall::write, SQLITE_OK};
};

/// A container of samples, each made from its number alone so that it is known again.
class SampleStore {
public:
    static constexpr const char* fileName = "Samples.sqlite";
    static inline const platform::FetchRequest everySample{"DataEntry"};

    explicit SampleStore(const std::filesystem::path& directory, const char* vfs = nullptr)
        : store_([directory] { return directory; }, vfs), container_(store_.makeContainer("Samples")) {}

    [[nodiscard]] std::expected<void, platform::StoreError> open() { return container_->loadPersistentStores(); }
    platform::ManagedObjectContext& context() { return container_->viewContext(); }

    void insert(int number);
    /// Inserts and saves.
    [[nodiscard]] std::expected<void, platform::StoreError> add(int number) { return addAll({number}); }
    [[nodiscard]] std::expected<void, platform::StoreError> addAll(const std::vector<int>& numbers);
    [[nodiscard]] auto removeAll() { return context().batchDelete(everySample); }
    [[nodiscard]] auto count() { return context().count(everySample); }

    /// The samples that a fetch finds, in its order; -1 for one that is not as it was made.
    std::expected<std::vector<int>, platform::StoreError> numbers();

private:
    platform::SqliteObjectStore store_;
    std::unique_ptr<platform::PersistentContainer> container_;
};

/// An open store, on a disk that fails when it is told to.
class SampleStoreTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(store.open()); }

    TemporaryDirectory directory;
    const std::filesystem::path file = directory.path() / SampleStore::fileName;
    FaultyVfs vfs;
    SampleStore store{directory.path(), vfs.name()};
};

/// Another program's connection to a store's file.
class OtherProgram {
public:
    explicit OtherProgram(const std::filesystem::path& file) { sqlite3_open(file.c_str(), &database_); }
    ~OtherProgram() { sqlite3_close(database_); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    /// The first columns of the result, one after the other.
    std::string run(const std::string& sql);
    /// Reads, and keeps its snapshot.
    void beginToRead() { run("BEGIN; SELECT count(*) FROM DataEntry"); }
    void beginToWrite() { run("BEGIN IMMEDIATE"); }
    void end() { run("ROLLBACK"); }

private:
    sqlite3* database_ = nullptr;
};

/// While it lives, this process can write neither the directory nor anything in it. Root could write all the same, so a
/// process of root's becomes another user for good: use it in a `ChildProcess`.
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(const std::filesystem::path& directory);
    ~ReadOnlyDirectory();
    ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
    ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;

private:
    std::filesystem::path directory_;
};

/// True when a file in `directory` holds bytes that only one of these samples has. Looks from a process of its own:
/// closing a file drops the locks that connections of the same process hold on it.
bool leavesTrace(const std::filesystem::path& directory, const std::vector<int>& numbers);

/// SQLite's own check of the store's file; "ok" for one that is whole.
inline std::string integrity(const std::filesystem::path& directory) {
    return OtherProgram(directory / SampleStore::fileName).run("PRAGMA integrity_check");
}

/// The `count` numbers from `first` on.
inline std::vector<int> range(int first, int count) {
    const auto numbers = std::views::iota(first, first + count);
    return {numbers.begin(), numbers.end()};
}

/// Leaves a closed store with these samples.
void fillStore(const std::filesystem::path& directory, const std::vector<int>& numbers);

}  // namespace tarvex::test
