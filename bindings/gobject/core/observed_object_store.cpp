#include "observed_object_store.h"

namespace tarvex::glib {

namespace {

using namespace platform;

class ObservedContext final : public ManagedObjectContext {
public:
    ObservedContext(ManagedObjectContext& context, std::function<void()> changed)
        : context_(context), changed_(std::move(changed)) {}

    std::shared_ptr<ManagedObject> insertNewObject(std::string_view entityName) override {
        return context_.insertNewObject(entityName);
    }

    // Objects whose commit has failed count as well.
    std::expected<void, StoreError> save() override {
        auto saved = context_.save();
        changed_();
        return saved;
    }

    std::expected<void, StoreError> fetch(const FetchRequest& request, const RowVisitor& visit) override {
        return context_.fetch(request, visit);
    }

    std::size_t fetchSizeBound(const FetchRequest& request) override { return context_.fetchSizeBound(request); }

    std::expected<std::int64_t, StoreError> count(const FetchRequest& request) override {
        return context_.count(request);
    }

    std::expected<void, StoreError> batchDelete(const FetchRequest& request) override {
        auto deleted = context_.batchDelete(request);
        if (deleted) changed_();
        return deleted;
    }

    void scrub() override { context_.scrub(); }

private:
    ManagedObjectContext& context_;
    std::function<void()> changed_;
};

class ObservedContainer final : public PersistentContainer {
public:
    ObservedContainer(std::unique_ptr<PersistentContainer> container, std::function<void()> changed)
        : container_(std::move(container)), changed_(std::move(changed)) {}

    std::expected<void, StoreError> loadPersistentStores() override { return container_->loadPersistentStores(); }

    ManagedObjectContext& viewContext() override {
        if (!context_) context_ = std::make_unique<ObservedContext>(container_->viewContext(), changed_);
        return *context_;
    }

    void waitAtMost(std::chrono::milliseconds wait) override { container_->waitAtMost(wait); }

private:
    std::unique_ptr<PersistentContainer> container_;
    std::function<void()> changed_;
    std::unique_ptr<ObservedContext> context_;
};

}  // namespace

std::unique_ptr<PersistentContainer> ObservedObjectStore::makeContainer(std::string_view name) {
    return std::make_unique<ObservedContainer>(store_.makeContainer(name), changed_);
}

}  // namespace tarvex::glib
