#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "tarvex/platform/object_store.h"

namespace tarvex::glib {

/// A store that passes everything on to another one, and tells when the number of its records has changed. Thread-safe,
/// as the other one is; the other one outlives it.
class ObservedObjectStore final : public platform::ObjectStore {
public:
    /// `changed` is called on the thread that changed something, after the store has done its work.
    ObservedObjectStore(platform::ObjectStore& store, std::function<void()> changed)
        : store_(store), changed_(std::move(changed)) {}

    [[nodiscard]] bool fitsModel(const std::filesystem::path& path) const override { return store_.fitsModel(path); }
    [[nodiscard]] std::unique_ptr<platform::PersistentContainer> makeContainer(std::string_view name) override;

private:
    platform::ObjectStore& store_;
    std::function<void()> changed_;
};

}  // namespace tarvex::glib
