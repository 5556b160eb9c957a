#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/uuid.h"

namespace tarvex::platform {

/// The attributes of a record: see `DataEntry`.
struct ManagedObject {
    std::optional<Uuid> id;
    double timestamp = 0;
    std::optional<std::string> type;
    std::optional<std::vector<std::byte>> data;
};

/// The attributes that a fetch reads, in memory of the store for the length of a callback. A stored value that does not
/// have its attribute's type reads as absent; a string's bytes are passed on as they are stored.
struct ManagedObjectView {
    std::optional<double> timestamp;
    std::optional<std::string_view> type;
    std::optional<std::span<const std::byte>> data;
};

/// A request for every record of an entity. A store keeps one entity, "DataEntry": operations on another one fail.
struct FetchRequest {
    std::string entityName;
};

/// The failure of an operation: the text for one line of diagnostics about it, and its cause as far as a caller can
/// decide by it.
struct StoreError {
    enum class Cause : std::uint8_t {
        other,
        busy,    ///< another connection held the store for longer than the operation waits: a later try can work
        moved,   ///< the store's files were removed or replaced: the next operation makes the store again
        noRoom,  ///< the disk is full
    };

    std::string description;  ///< one readable sentence that names the file
    std::string userInfo;     ///< details, printed as a dictionary
    Cause cause = Cause::other;
};

/// The record store's one context: new objects are pending in it, in memory, until `save` writes them.
///
/// Reentrant. Only `save` and `batchDelete` change what a power cut leaves: both are durable when they return success.
class TARVEX_EXPORT ManagedObjectContext {
public:
    /// Called for one record after the other; returning false ends the fetch.
    using RowVisitor = std::function<bool(const ManagedObjectView&)>;

    virtual ~ManagedObjectContext() = default;

    /// A new pending object of the entity, every attribute absent, its time 0; null for an entity that is not kept. In
    /// memory only, until `save`: it does not survive the process.
    virtual std::shared_ptr<ManagedObject> insertNewObject(std::string_view entityName) = 0;

    /// Commits all pending objects in one transaction, in the order of their insertion. Durable when it succeeds: the
    /// records survive a power cut. On failure all of them stay pending. A commit into files that were removed or
    /// replaced meanwhile has failed, too.
    [[nodiscard]] virtual std::expected<void, StoreError> save() = 0;

    /// Visits stored, then pending records, each in the order of their insertion, as one consistent view.
    [[nodiscard]] virtual std::expected<void, StoreError> fetch(const FetchRequest& request,
                                                                const RowVisitor& visit) = 0;

    /// An upper bound, found without reading the records, for the bytes that all of them take.
    virtual std::size_t fetchSizeBound(const FetchRequest& request) = 0;

    /// Stored and pending records, in microseconds at any size.
    [[nodiscard]] virtual std::expected<std::int64_t, StoreError> count(const FetchRequest& request) = 0;

    /// Removes every stored record at once; pending ones stay. Durable when it succeeds: no power cut brings a record
    /// back. The bytes of the removed records may stay in the files until `scrub`. Works on a full disk as well, unless
    /// another connection holds the store open then.
    [[nodiscard]] virtual std::expected<void, StoreError> batchDelete(const FetchRequest& request) = 0;

    /// Removes the bytes of deleted records from the files, where there are any; does nothing otherwise.
    ///
    /// Other connections can prevent it; it waits for them 50 ms at most. The store remembers durably that a scrub is
    /// owed, and tries it again, without waiting, after each later operation and when it is next opened.
    virtual void scrub() = 0;
};

/// A record store on disk. Reentrant; its context is part of it.
class TARVEX_EXPORT PersistentContainer {
public:
    virtual ~PersistentContainer() = default;

    /// Opens the store, creating it when it is not there: durably when this succeeds. Nothing is moved or deleted on
    /// failure.
    [[nodiscard]] virtual std::expected<void, StoreError> loadPersistentStores() = 0;

    /// The same context on every call; used once the store is open, and owned by the container.
    virtual ManagedObjectContext& viewContext() = 0;

    /// Sets how long each later operation, of the container and of its context, waits for other connections at most. By
    /// default an implementation waits as it sees fit.
    virtual void waitAtMost(std::chrono::milliseconds /*wait*/) {}
};

/// Makes the stores of the host's records in its data directory. Thread-safe.
class TARVEX_EXPORT ObjectStore {
public:
    virtual ~ObjectStore() = default;

    /// True when the file at `path` is the object model of the records that this store keeps.
    [[nodiscard]] virtual bool fitsModel(const std::filesystem::path& path) const = 0;

    /// A container for the store `name` in the data directory. Touches no file: `loadPersistentStores` does.
    [[nodiscard]] virtual std::unique_ptr<PersistentContainer> makeContainer(std::string_view name) = 0;
};

}  // namespace tarvex::platform
