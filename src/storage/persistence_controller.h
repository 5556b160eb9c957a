#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/platform.h"
#include "storage/fair_mutex.h"
#include "storage/tracking_data.h"
#include "tarvex/data_reader.h"

namespace tarvex {

/// The record store: one durable record for each sample, until all are deleted at once.
///
/// Thread-safe: one lock is held for the length of each operation. The first operation of any kind opens the store;
/// where that fails the process stops with a diagnostic on standard error.
class PersistenceController {
public:
    /// The one controller of the process, created on first use and never destroyed.
    static PersistenceController& shared();

    explicit PersistenceController(platform::Platform& platform);

    /// Stores one sample, durably when this returns. A sample with a value that is not finite is dropped. When the
    /// commit fails, the sample stays pending in memory and is written by the next commit that works.
    void saveTrackingData(const DataReader& reader, const ValueMap& data);

    /// Commits what is pending; a failure is one line on standard output.
    void saveChanges();

    /// Removes every stored record; pending ones stay. A failure is silent, and the records stay.
    void deleteAllTrackingData();

    /// Stored and pending records; absent when counting fails.
    std::optional<std::int64_t> countTrackingData();

    /// Every readable record, stored or pending, as one encoded upload document. Absent when the records cannot be
    /// read, the document cannot be encoded, or there is no memory for it.
    std::optional<platform::ByteBuffer> loadTrackingData();

private:
    // The caller holds the lock.
    const platform::ManagedObjectModel& managedObjectModel();
    platform::ManagedObjectContext& viewContext();
    void commit();
    std::optional<platform::ByteBuffer> assembleUploadDocument();

    platform::Platform& platform_;
    FairMutex mutex_;
    std::optional<platform::ManagedObjectModel> managedObjectModel_;
    std::unique_ptr<platform::PersistentContainer> container_;
};

}  // namespace tarvex
