#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "collector/store/postgresql/postgresql_connection.h"
#include "collector/store/postgresql/postgresql_schema.h"

namespace tarvex::collector {

/// Counts a body in the transaction that is under way; absent when it is not known.
std::optional<Receipt> countKnown(PostgresqlConnection& connection, const Body& body);

/// What has to be known of a document's samples before they are stored.
struct Extent {
    /// Of one kind of samples that are not expired.
    struct Part {
        double from = std::numeric_limits<double>::infinity();
        double until = -std::numeric_limits<double>::infinity();  ///< included
        bool isOrdered = true;                                    ///< one batch after the other
    };

    Part light = {};
    Part distances = {};
    Part others = {};
    Months months = {};  ///< of those that are not expired
    std::optional<double> newest = std::nullopt;
    std::uint64_t expired = 0;
};
Extent extentOf(const Document& document, double expired);

/// Stores a document in one transaction. The partitions of its months are there.
Receipt importDocument(PostgresqlConnection& connection, const Body& body, const Document& document,
                       const Extent& extent, bool needsEnrolment, double expired);

}  // namespace tarvex::collector
