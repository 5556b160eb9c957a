#pragma once

#include "prelude.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::test {

/// A store that opens, and whose operations follow a script; those without one fail, `save` and `scrub` apart.
class ScriptedObjectStore final : public platform::ObjectStore,
                                  public platform::PersistentContainer,
                                  public platform::ManagedObjectContext {
public:
    using Outcome = std::expected<void, platform::StoreError>;
    struct Script {
        std::function<void()> save = [] {};
        std::function<void()> fetch = {};
        std::function<void()> batchDelete = {};
        std::size_t fetchSizeBound = 0;
        bool fitsModel = true;
    };

    ScriptedObjectStore() = default;
    explicit ScriptedObjectStore(Script script) : script_(std::move(script)) {}

    bool fitsModel(const std::filesystem::path&) const override { return script_.fitsModel; }
    std::unique_ptr<platform::PersistentContainer> makeContainer(std::string_view) override {
        return std::make_unique<ScriptedObjectStore>(script_);
    }
    Outcome loadPersistentStores() override { return {}; }
    platform::ManagedObjectContext& viewContext() override { return *this; }
    std::shared_ptr<platform::ManagedObject> insertNewObject(std::string_view) override {
        return std::make_shared<platform::ManagedObject>();
    }
    Outcome save() override { return outcomeOf(script_.save); }
    Outcome fetch(const platform::FetchRequest&, const RowVisitor&) override { return outcomeOf(script_.fetch); }
    std::size_t fetchSizeBound(const platform::FetchRequest&) override { return script_.fetchSizeBound; }
    std::expected<std::int64_t, platform::StoreError> count(const platform::FetchRequest&) override {
        return std::unexpected(platform::StoreError{"error", "{}"});
    }
    Outcome batchDelete(const platform::FetchRequest&) override { return outcomeOf(script_.batchDelete); }
    void scrub() override {}

private:
    static Outcome outcomeOf(const std::function<void()>& operation) {
        if (!operation) return std::unexpected(platform::StoreError{"error", "{}"});
        operation();
        return {};
    }

    Script script_;
};

}  // namespace tarvex::test
