#pragma once

#include "faulty_vfs.h"
#include "platform/sqlite/sqlite_object_store.h"
#include "prelude.h"

namespace tarvex::test {

/// The model of the library's own store.
platform::ManagedObjectModel sampleModel();

/// A container of samples, each made from its number alone so that it is known again.
class SampleStore {
public:
    static constexpr const char* fileName = "Samples.sqlite";

    explicit SampleStore(const std::filesystem::path& directory, const char* vfs = nullptr);

    [[nodiscard]] std::expected<void, platform::StoreError> open() { return container_->loadPersistentStores(); }
    platform::ManagedObjectContext& context() { return container_->viewContext(); }

    void insert(int number);
    /// Inserts and saves.
    [[nodiscard]] std::expected<void, platform::StoreError> add(int number);
    [[nodiscard]] std::expected<void, platform::StoreError> addAll(const std::vector<int>& numbers);
    [[nodiscard]] std::expected<void, platform::StoreError> removeAll();
    [[nodiscard]] std::expected<std::int64_t, platform::StoreError> count();

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

    /// The first columns of the answer.
    std::string run(const std::string& sql);
    /// Reads, and goes on seeing what it sees now.
    void beginToRead() { run("BEGIN; SELECT count(*) FROM DataEntry"); }
    void beginToWrite() { run("BEGIN IMMEDIATE"); }
    void end() { run("ROLLBACK"); }

private:
    sqlite3* database_ = nullptr;
};

/// Whether a file in `directory` holds bytes that only one of these samples has. Looks from a process of its own:
/// closing a file drops the locks that connections of the same process hold on it.
bool leavesTrace(const std::filesystem::path& directory, const std::vector<int>& numbers);

/// What SQLite itself finds wrong with the store's file; "ok" if nothing.
std::string integrity(const std::filesystem::path& directory);

/// The `count` numbers from `first` on.
std::vector<int> range(int first, int count);

}  // namespace tarvex::test
