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
#include <variant>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/uuid.h"

namespace tarvex::platform {

/// The types that an attribute's value can have: see `AttributeValue`, in the same order.
enum class AttributeType : std::uint8_t { uuid, number, string, binary };

/// One attribute that every record of an entity has. Only an optional one can be absent.
struct AttributeDescription {
    std::string name;
    AttributeType type;
    bool optional;

    friend bool operator==(const AttributeDescription&, const AttributeDescription&) = default;
};

/// A kind of record. The order of its attributes is that of the values in a record.
struct EntityDescription {
    std::string name;
    std::vector<AttributeDescription> attributes;

    friend bool operator==(const EntityDescription&, const EntityDescription&) = default;
};

/// What a store holds: read from a model resource, never changed.
struct ManagedObjectModel {
    std::vector<EntityDescription> entities;
};

/// An attribute's value; `std::monostate` where it is absent.
using AttributeValue = std::variant<std::monostate, Uuid, double, std::string, std::vector<std::byte>>;

/// The same, looking at memory of the store for the length of a callback. A stored value that does not have its
/// attribute's type reads as absent; a string's bytes are passed on as they are stored.
using AttributeView = std::variant<std::monostate, Uuid, double, std::string_view, std::span<const std::byte>>;

/// A new record: one value for each attribute of its entity, in the entity's order.
struct ManagedObject {
    std::vector<AttributeValue> values;
};

/// Which records an operation is about: all of one entity.
struct FetchRequest {
    std::string entityName;
    std::vector<std::size_t> propertiesToFetch;  ///< places of attributes; the others read as absent. Empty: all
};

/// Why an operation of the store failed: the text for the one line of diagnostics about it, and what can be done.
struct StoreError {
    enum class Cause : std::uint8_t {
        other,
        busy,    ///< another connection held the store for longer than the operation waits: a later try can work
        moved,   ///< the store's files were removed or replaced: the next operation makes the store again
        noRoom,  ///< the disk is full
    };

    std::string description;     ///< one readable sentence that names the file
    std::string userInfo;        ///< details, printed as a dictionary
    Cause cause = Cause::other;  ///< what a caller can decide by
};

/// The record store's one context: new objects are pending in it, in memory, until `save` writes them.
/// Not synchronised: its owner lets one operation run at a time.
class TARVEX_EXPORT ManagedObjectContext {
public:
    /// Called for one record after the other; returning false ends the fetch.
    using RowVisitor = std::function<bool(std::span<const AttributeView>)>;

    virtual ~ManagedObjectContext() = default;

    /// A new pending object of the entity, every attribute absent (a number: 0); null when the model has no such
    /// entity.
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

    /// Removes every stored record at once; pending ones stay. The bytes of the removed records may stay in the files
    /// until `scrub`. Works on a full disk as well, unless another connection holds the store open then.
    [[nodiscard]] virtual std::expected<void, StoreError> batchDelete(const FetchRequest& request) = 0;

    /// Removes what deleted records left behind in the files, when that is owed; does nothing otherwise.
    ///
    /// Other connections can prevent it; it waits for them 50 ms at most. What is still owed then is remembered in the
    /// store, and tried again, without waiting, after each later operation and when the store is next opened.
    virtual void scrub() = 0;
};

/// A record store on disk, by its name and model. Not synchronised: its owner lets one operation run at a time.
class TARVEX_EXPORT PersistentContainer {
public:
    virtual ~PersistentContainer() = default;

    /// Opens the store, creating it when it is not there. Nothing is moved or deleted on failure.
    [[nodiscard]] virtual std::expected<void, StoreError> loadPersistentStores() = 0;

    /// The same context on every call; used once the store is open, and owned by the container.
    virtual ManagedObjectContext& viewContext() = 0;

    /// How long each later operation, of the container and of its context, waits for other connections at most. By
    /// default an implementation waits as it sees fit.
    virtual void waitAtMost(std::chrono::milliseconds /*wait*/) {}
};

/// Makes the stores of the host's records in its data directory. Thread-safe.
class TARVEX_EXPORT ObjectStore {
public:
    virtual ~ObjectStore() = default;

    /// The model in the file at `path`; absent when it cannot be read.
    virtual std::optional<ManagedObjectModel> modelWithContentsOfFile(const std::filesystem::path& path) const = 0;

    /// A container for the store `name` in the data directory. Touches no file: `loadPersistentStores` does.
    [[nodiscard]] virtual std::unique_ptr<PersistentContainer> makeContainer(std::string_view name,
                                                                             const ManagedObjectModel& model) = 0;
};

}  // namespace tarvex::platform
