#include "storage/persistence_controller.h"

#include <iostream>
#include <mutex>
#include <utility>

#include "storage/fatal_stop.h"
#include "tarvex/data_entry.h"

namespace tarvex {

PersistenceController& PersistenceController::shared() {
    static PersistenceController& instance = *new PersistenceController(platform::Platform::current());
    return instance;
}

PersistenceController::PersistenceController(platform::Platform& platform) : platform_(platform) {}

const platform::ManagedObjectModel& PersistenceController::managedObjectModel() {
    if (managedObjectModel_) return *managedObjectModel_;
    const platform::Bundle* resources = platform_.bundles().bundleWithIdentifier(platform::libraryBundleIdentifier);
    if (resources == nullptr) fatalStop("Unresolved error");
    const auto path = resources->pathForResource("TrackingDataContainer", "momd");
    if (!path) fatalStop("Unresolved error");
    managedObjectModel_ = platform_.objectStore().modelWithContentsOfFile(*path);
    if (!managedObjectModel_ || managedObjectModel_->entities != std::vector{DataEntry::entityDescription()})
        fatalStop("Unresolved error");
    return *managedObjectModel_;
}

platform::ManagedObjectContext& PersistenceController::viewContext() {
    if (!container_) {
        auto container = platform_.objectStore().makeContainer("TrackingDataContainer", managedObjectModel());
        if (const auto loaded = container->loadPersistentStores(); !loaded)
            fatalStop("Unresolved error " + loaded.error().description + ", " + loaded.error().userInfo);
        container_ = std::move(container);
    }
    return container_->viewContext();
}

void PersistenceController::saveTrackingData(const DataReader& reader, const ValueMap& data) {
    const auto encoded = encode(data, platform_.jsonCoder());
    if (!encoded) return;
    const auto bytes = std::as_bytes(std::span(encoded->view()));
    const std::lock_guard lock(mutex_);
    DataEntry entry(viewContext());
    entry.setId(platform_.uuidGenerator().makeUuid());
    entry.setTimestamp(platform_.clock().secondsSince1970());
    entry.setType(std::string(reader.id()));
    entry.setData(DataEntry::Bytes(bytes.begin(), bytes.end()));
    commit();
}

void PersistenceController::saveChanges() {
    const std::lock_guard lock(mutex_);
    commit();
}

void PersistenceController::commit() {
    if (const auto saved = viewContext().save(); !saved)
        std::cout << "[ ERROR ] Could not save data " + saved.error().description + '\n' << std::flush;
}

void PersistenceController::deleteAllTrackingData() {
    {
        const std::lock_guard lock(mutex_);
        // A failed deletion leaves the records, and nobody to tell.
        if (!viewContext().batchDelete(DataEntry::fetchRequest())) return;
    }
    // Between the two, a tick that waits stores its sample: it need not wait for the clean-up.
    const std::lock_guard lock(mutex_);
    viewContext().scrub();
}

std::optional<std::int64_t> PersistenceController::countTrackingData() {
    const std::lock_guard lock(mutex_);
    const auto count = viewContext().count(DataEntry::fetchRequest());
    return count ? std::optional(*count) : std::nullopt;
}

}  // namespace tarvex
