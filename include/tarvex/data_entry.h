#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/object_store.h"
#include "tarvex/uuid.h"

namespace tarvex {

/// The stored record of one sample: a managed object of the entity "DataEntry".
///
/// Its attributes live in the object that the context holds; a `DataEntry` is a handle to it, cheap to copy. Reentrant,
/// where a context counts as one object together with all records that are pending in it.
class TARVEX_EXPORT DataEntry {
public:
    /// A value map as stored: JSON in UTF-8, not terminated.
    using Bytes = std::vector<std::byte>;

    /// A request for every record, without a predicate or an order.
    static platform::FetchRequest fetchRequest();

    /// Inserts a new record into `context`, pending until the context is saved: its timestamp 0, all else absent. The
    /// record is durable once `context.save()` has succeeded.
    explicit DataEntry(platform::ManagedObjectContext& context);

    // Copies, as the record holds them now; absent where nothing was set.

    std::optional<Uuid> id() const;           ///< distinct for each record
    double timestamp() const;                 ///< seconds since 1970-01-01 00:00:00 UTC
    std::optional<std::string> type() const;  ///< `DataReader::id` of the reader that took the sample
    std::optional<Bytes> data() const;        ///< the sample's named numbers

    // Change the pending record only: one that was saved stays as it is.

    void setId(std::optional<Uuid> id);
    void setTimestamp(double secondsSince1970);
    void setType(std::optional<std::string> type);
    void setData(std::optional<Bytes> data);

private:
    std::shared_ptr<platform::ManagedObject> object_;
};

}  // namespace tarvex
