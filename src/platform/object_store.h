#pragma once

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

enum class AttributeType : std::uint8_t { uuid, number, string, binary };

struct AttributeDescription {
    std::string name;
    AttributeType type;
    bool optional;

    friend bool operator==(const AttributeDescription&, const AttributeDescription&) = default;
};

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

struct FetchRequest {
    std::string entityName;
    std::vector<std::size_t> propertiesToFetch;  ///< places of attributes; the others read as absent. Empty: all
};

struct StoreError {
    std::string description;
    std::string userInfo;  ///< details, printed as a dictionary
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
    /// records survive a power cut. On failure all of them stay pending.
    [[nodiscard]] virtual std::expected<void, StoreError> save() = 0;

    /// Visits stored, then pending records, each in the order of their insertion, as one consistent view.
    [[nodiscard]] virtual std::expected<void, StoreError> fetch(const FetchRequest& request,
                                                                const RowVisitor& visit) = 0;

    /// An upper bound, found without reading the records, for the bytes that all of them take.
    virtual std::size_t fetchSizeBound(const FetchRequest& request) = 0;

    /// Stored and pending records, in microseconds at any size.
    [[nodiscard]] virtual std::expected<std::int64_t, StoreError> count(const FetchRequest& request) = 0;

    /// Removes every stored record at once; pending ones stay. The bytes of the removed records may stay in the files
    /// until `scrub`.
    [[nodiscard]] virtual std::expected<void, StoreError> batchDelete(const FetchRequest& request) = 0;

    /// Removes what deleted records left behind in the files, when that is owed; does nothing otherwise.
    ///
    /// Other connections can prevent it; it waits for them 50 ms at most. What is still owed then is remembered in the
    /// store, and tried again, without waiting, after each later operation and when the store is next opened.
    virtual void scrub() = 0;
};

class TARVEX_EXPORT PersistentContainer {
public:
    virtual ~PersistentContainer() = default;

    /// Opens the store, creating it when it is not there. Nothing is moved or deleted on failure.
    [[nodiscard]] virtual std::expected<void, StoreError> loadPersistentStores() = 0;

    /// The same context on every call.
    virtual ManagedObjectContext& viewContext() = 0;
};

class TARVEX_EXPORT ObjectStore {
public:
    virtual ~ObjectStore() = default;

    /// The model in the file at `path`; absent when it cannot be read.
    virtual std::optional<ManagedObjectModel> modelWithContentsOfFile(const std::filesystem::path& path) const = 0;

    [[nodiscard]] virtual std::unique_ptr<PersistentContainer> makeContainer(std::string_view name,
                                                                             const ManagedObjectModel& model) = 0;
};

}  // namespace tarvex::platform
