#include "storage/persistence_controller.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include "storage/upload_document.h"
#include "tarvex/data_entry.h"
#include "tarvex/platform/diagnostics.h"

namespace tarvex {

namespace {

using namespace std::chrono_literals;
using Milliseconds = PersistenceController::Milliseconds;

/// Patience of the host's calls that are no ticks.
constexpr Milliseconds operationPatience = 1000ms;
/// Patience of the first use: another process may be creating the store, or emptying the log of its last connection.
constexpr Milliseconds openingPatience = 5000ms;
constexpr Milliseconds exitPatience = 250ms;

constexpr std::string_view storeName = "TrackingDataContainer";

/// Ends the process because the record store cannot work: one line on standard error, then an abort.
[[noreturn]] void fatalStop(const std::string& message) {
    platform::writeErrorLine("Fatal error: " + message + ": file PersistenceController");
    std::abort();
}

}  // namespace

PersistenceController& PersistenceController::shared() {
    static PersistenceController& instance = *new PersistenceController(platform::Platform::current());
    static const int registered = std::atexit([] { instance.savePending(exitPatience); });
    static_cast<void>(registered);
    return instance;
}

PersistenceController::PersistenceController(platform::Platform& platform) : platform_(platform) {}

/// A library whose model resource is missing, or another version's, must not touch the records.
void PersistenceController::checkManagedObjectModel() {
    const platform::Bundle* resources = platform_.bundles().bundleWithIdentifier(platform::libraryBundleIdentifier);
    const auto path = resources ? resources->pathForResource(storeName, "momd") : std::nullopt;
    if (!path || !platform_.objectStore().fitsModel(*path)) fatalStop("Unresolved error");
}

/// A store that is only in use for longer than `wait` is no reason to stop: a later operation opens it.
std::expected<platform::ManagedObjectContext*, platform::StoreError> PersistenceController::viewContext(
    Milliseconds wait) {
    if (!container_) {
        checkManagedObjectModel();
        auto container = platform_.objectStore().makeContainer(storeName);
        container->waitAtMost(wait);
        if (auto loaded = container->loadPersistentStores(); !loaded) {
            platform::StoreError& error = loaded.error();
            if (error.cause == platform::StoreError::Cause::busy) return std::unexpected(std::move(error));
            fatalStop("Unresolved error " + error.description + ", " + error.userInfo);
        }
        container_ = std::move(container);
    }
    container_->waitAtMost(wait);
    return &container_->viewContext();
}

/// For operations that a host calls and waits for.
platform::ManagedObjectContext& PersistenceController::viewContextOrStop() {
    const auto context = viewContext(container_ ? operationPatience : openingPatience);
    if (!context) fatalStop("Unresolved error " + context.error().description + ", " + context.error().userInfo);
    insertWaiting(**context);
    return **context;
}

void PersistenceController::saveTrackingData(const DataReader& reader, const ValueMap& data) {
    const auto encoded = encode(data);
    if (!encoded) return;
    const auto bytes = std::as_bytes(std::span(encoded->view()));
    Sample sample{.id = Uuid::random(),
                  .timestamp = platform_.clock().secondsSince1970(),
                  .type = std::string(reader.id()),
                  .data = {bytes.begin(), bytes.end()}};
    {
        const std::lock_guard lock(waitingMutex_);
        waiting_.push_back(std::move(sample));
    }
    if (!mutex_.try_lock_for(tickPatience)) return;
    const std::lock_guard lock(mutex_, std::adopt_lock);
    commit(tickPatience);
}

void PersistenceController::insertWaiting(platform::ManagedObjectContext& context) {
    const std::lock_guard lock(waitingMutex_);
    for (Sample& sample : std::exchange(waiting_, {})) {
        DataEntry entry(context);
        entry.setId(sample.id);
        entry.setTimestamp(sample.timestamp);
        entry.setType(std::move(sample.type));
        entry.setData(std::move(sample.data));
        contextHoldsPending_ = true;
    }
}

bool PersistenceController::isAnythingPending() {
    const std::lock_guard lock(waitingMutex_);
    return contextHoldsPending_ || !waiting_.empty();
}

std::expected<void, platform::StoreError> PersistenceController::save(Milliseconds wait) {
    const auto context = viewContext(wait);
    if (!context) return std::unexpected(context.error());
    insertWaiting(**context);
    if (auto saved = (*context)->save(); !saved) return saved;
    contextHoldsPending_ = false;
    return {};
}

void PersistenceController::commit(Milliseconds wait) {
    auto saved = save(wait);
    for (int tries = 1; !saved; ++tries) {
        platform::writeOutputLine("[ ERROR ] Could not save data " + saved.error().description);
        // A store that somebody removed or replaced is made again at once.
        if (saved.error().cause != platform::StoreError::Cause::moved || tries > 1) return;
        saved = save(wait);
    }
}

void PersistenceController::saveChanges() {
    const std::lock_guard lock(mutex_);
    commit(operationPatience);
}

void PersistenceController::savePending(Milliseconds wait) {
    if (!mutex_.try_lock_for(wait)) return;
    const std::lock_guard lock(mutex_, std::adopt_lock);
    if (isAnythingPending()) commit(wait);
}

void PersistenceController::deleteAllTrackingData(Milliseconds wait) {
    // A failed deletion leaves the records; no caller could do more.
    if (!deleteRecords(wait)) return;
    // Between the two, a tick that waits stores its sample: it need not wait for the clean-up.
    const std::lock_guard lock(mutex_);
    viewContextOrStop().scrub();
}

/// Waits for another process in slices in which the lock is free.
std::expected<void, platform::StoreError> PersistenceController::deleteRecords(Milliseconds wait) {
    constexpr Milliseconds slice = tickPatience;
    for (;; wait -= slice) {
        const std::lock_guard lock(mutex_);
        viewContextOrStop();
        const auto context = viewContext(std::clamp(wait, 0ms, slice));
        if (!context) return std::unexpected(context.error());
        auto deleted = (*context)->batchDelete(DataEntry::fetchRequest());
        if (deleted || deleted.error().cause != platform::StoreError::Cause::busy || wait <= slice) return deleted;
    }
}

std::optional<std::int64_t> PersistenceController::countTrackingData() {
    const std::lock_guard lock(mutex_);
    const auto count = viewContextOrStop().count(DataEntry::fetchRequest());
    return count ? std::optional(*count) : std::nullopt;
}

std::optional<platform::ByteBuffer> PersistenceController::loadTrackingData(const SenderSource& sender) {
    try {
        auto document = fetchSamples();
        if (!document) return std::nullopt;
        // Without the lock: no sample waits for the user defaults.
        const auto from = sender();
        return from ? document->finish(*from) : std::nullopt;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

std::optional<UploadDocument> PersistenceController::fetchSamples() {
    const std::lock_guard lock(mutex_);
    platform::ManagedObjectContext& context = viewContextOrStop();
    if (isAnythingPending()) commit(tickPatience);
    const platform::FetchRequest request = DataEntry::fetchRequest();
    std::optional<UploadDocument> document(std::in_place, context.fetchSizeBound(request));
    const auto fetched = context.fetch(request, [&document](const auto& record) {
        document->append(record);
        return true;
    });
    if (!fetched) document.reset();
    return document;
}

}  // namespace tarvex
