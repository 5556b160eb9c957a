#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "storage/fair_mutex.h"
#include "storage/tracking_data.h"
#include "tarvex/data_reader.h"
#include "tarvex/platform/platform.h"
#include "tarvex/uuid.h"

namespace tarvex {

class UploadDocument;

/// The record store: one durable record for each sample, until all are deleted at once.
///
/// Thread-safe: one lock is held for the length of each operation, and for less where an operation waits for another
/// process. The first operation of any kind opens the store; where that fails the process stops with a diagnostic on
/// standard error.
class PersistenceController {
public:
    using Milliseconds = std::chrono::milliseconds;
    using SenderSource = std::function<std::optional<Sender>()>;

    /// Longest wait of a tick of the host's main loop: once for other threads, and once for other processes.
    static constexpr Milliseconds tickPatience{20};

    /// The one controller of the process, created on first use and never destroyed. When the process exits, pending
    /// samples are written, if that is possible within half a second.
    static PersistenceController& shared();

    explicit PersistenceController(platform::Platform& platform);

    /// Stores one sample, durably when this returns. A sample with a value that is not finite is dropped. When the
    /// commit fails, or the store is in use for longer than a tick waits, the sample stays pending in memory: it is
    /// written by the next commit that works.
    void saveTrackingData(const DataReader& reader, const ValueMap& data);

    /// Commits pending samples, durably when it succeeds; a failure is one line on standard output.
    void saveChanges();

    /// The same when a sample is pending; otherwise does not even open the store. Waits for other threads, and for
    /// other processes, for `wait` each.
    void savePending(Milliseconds wait = tickPatience);

    /// Removes every stored record, durably; pending ones stay. A failure is silent, and the records stay. While
    /// another process holds the store, tries again for `wait`; in between, samples are stored.
    void deleteAllTrackingData(Milliseconds wait = Milliseconds(1000));

    /// Stored and pending records; absent when counting fails.
    std::optional<std::int64_t> countTrackingData();

    /// Every readable record, stored or pending, as one encoded upload document. Pending records are committed first,
    /// if that is possible. `sender` is called once the records have been read, without the lock. Absent when the
    /// records cannot be read, there is no sender, the document cannot be encoded, or there is no memory for it.
    std::optional<platform::ByteBuffer> loadTrackingData(const SenderSource& sender);

private:
    /// A record that no context has taken yet.
    struct Sample {
        Uuid id;
        double timestamp;
        std::string type;
        std::vector<std::byte> data;
    };

    // The caller holds the lock.
    void checkManagedObjectModel();
    std::expected<platform::ManagedObjectContext*, platform::StoreError> viewContext(Milliseconds wait);
    platform::ManagedObjectContext& viewContextOrStop();
    void insertWaiting(platform::ManagedObjectContext& context);
    std::expected<void, platform::StoreError> save(Milliseconds wait);
    void commit(Milliseconds wait);
    bool isAnythingPending();
    std::optional<UploadDocument> fetchSamples();

    // The caller does not hold it.
    std::expected<void, platform::StoreError> deleteRecords(Milliseconds wait);

    platform::Platform& platform_;
    FairMutex mutex_;
    std::unique_ptr<platform::PersistentContainer> container_;
    bool contextHoldsPending_ = false;

    std::mutex waitingMutex_;      // held for moments only, also by a tick that does not get the lock
    std::vector<Sample> waiting_;  // until the next holder of the lock inserts them
};

}  // namespace tarvex
