#pragma once

#include <expected>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/store/sqlite_object_store.h"

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
    [[nodiscard]] std::expected<void, platform::StoreError> removeAll();
    [[nodiscard]] std::expected<std::int64_t, platform::StoreError> count();

    /// The samples that a fetch finds, in its order; -1 for one that is not as it was made.
    std::expected<std::vector<int>, platform::StoreError> numbers();

private:
    platform::SqliteObjectStore store_;
    std::unique_ptr<platform::PersistentContainer> container_;
};

/// Whether a file in `directory` holds bytes that only one of these samples has. Looks from a process of its own:
/// closing a file drops the locks that connections of the same process hold on it.
bool leavesTrace(const std::filesystem::path& directory, const std::vector<int>& numbers);

/// What SQLite itself finds wrong with the store's file; "ok" if nothing.
std::string integrity(const std::filesystem::path& directory);

/// Runs SQL on the store's file as another program does.
void runSql(const std::filesystem::path& directory, const std::string& sql);

std::string contentsOf(const std::filesystem::path& file);

}  // namespace tarvex::test
