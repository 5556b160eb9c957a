#pragma once

#include "prelude.h"
#include "tarvex/data_entry.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::test {

/// A store that opens, and whose operations do what they are told; those that are told nothing fail, but for `save`.
class ScriptedObjectStore final : public platform::ObjectStore,
                                  public platform::PersistentContainer,
                                  public platform::ManagedObjectContext {
public:
    struct Script {
        std::function<void()> save = [] {};
        std::function<void()> fetch = {};
        std::function<void()> batchDelete = {};
        std::function<void()> scrub = [] {};
        std::size_t fetchSizeBound = 0;
    };

    ScriptedObjectStore() = default;
    explicit ScriptedObjectStore(Script script) : script_(std::move(script)) {}

    std::optional<platform::ManagedObjectModel> modelWithContentsOfFile(const std::filesystem::path&) const override {
        return {{{DataEntry::entityDescription()}}};
    }
    std::unique_ptr<platform::PersistentContainer> makeContainer(std::string_view,
                                                                 const platform::ManagedObjectModel&) override {
        return std::make_unique<ScriptedObjectStore>(script_);
    }
    std::expected<void, platform::StoreError> loadPersistentStores() override { return {}; }
    platform::ManagedObjectContext& viewContext() override { return *this; }
    std::shared_ptr<platform::ManagedObject> insertNewObject(std::string_view) override {
        return std::make_shared<platform::ManagedObject>(std::vector<platform::AttributeValue>(4));
    }
    std::expected<void, platform::StoreError> save() override { return outcomeOf(script_.save); }
    std::expected<void, platform::StoreError> fetch(const platform::FetchRequest&, const RowVisitor&) override {
        return outcomeOf(script_.fetch);
    }
    std::size_t fetchSizeBound(const platform::FetchRequest&) override { return script_.fetchSizeBound; }
    std::expected<std::int64_t, platform::StoreError> count(const platform::FetchRequest&) override {
        return failure();
    }
    std::expected<void, platform::StoreError> batchDelete(const platform::FetchRequest&) override {
        return outcomeOf(script_.batchDelete);
    }
    void scrub() override { script_.scrub(); }

private:
    static std::unexpected<platform::StoreError> failure() {
        return std::unexpected(platform::StoreError{"error", "{}"});
    }
    static std::expected<void, platform::StoreError> outcomeOf(const std::function<void()>& operation) {
        if (!operation) return failure();
        operation();
        return {};
    }

    Script script_;
};

}  // namespace tarvex::test
