#pragma once

#include "platform/object_store.h"
#include "prelude.h"
#include "tarvex/data_entry.h"

namespace tarvex::test {

/// A store that opens, and then fails at everything.
class FailingObjectStore final : public platform::ObjectStore,
                                 public platform::PersistentContainer,
                                 public platform::ManagedObjectContext {
public:
    std::optional<platform::ManagedObjectModel> modelWithContentsOfFile(const std::filesystem::path&) const override {
        return {{{DataEntry::entityDescription()}}};
    }
    std::unique_ptr<platform::PersistentContainer> makeContainer(std::string_view,
                                                                 const platform::ManagedObjectModel&) override {
        return std::make_unique<FailingObjectStore>();
    }
    std::expected<void, platform::StoreError> loadPersistentStores() override { return {}; }
    platform::ManagedObjectContext& viewContext() override { return *this; }
    std::shared_ptr<platform::ManagedObject> insertNewObject(std::string_view) override {
        return std::make_shared<platform::ManagedObject>();
    }
    std::expected<void, platform::StoreError> save() override { return {}; }
    std::expected<void, platform::StoreError> fetch(const platform::FetchRequest&, const RowVisitor&) override {
        return failure();
    }
    std::size_t fetchSizeBound(const platform::FetchRequest&) override { return 0; }
    std::expected<std::int64_t, platform::StoreError> count(const platform::FetchRequest&) override {
        return failure();
    }
    std::expected<void, platform::StoreError> batchDelete(const platform::FetchRequest&) override { return failure(); }
    void scrub() override {}

private:
    static std::unexpected<platform::StoreError> failure() {
        return std::unexpected(platform::StoreError{"error", "{}"});
    }
};

}  // namespace tarvex::test
