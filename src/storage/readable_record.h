#pragma once

#include <optional>
#include <string_view>

#include "tarvex/platform/byte_buffer.h"
#include "tarvex/platform/json.h"
#include "tarvex/platform/object_store.h"

namespace tarvex {

/// The time and the type of a record that can be read; the type as long as the record.
struct ReadableRecord {
    double timestamp;
    std::string_view type;
};

/// Says which record can be read, and so is uploaded: it has a time, a type in UTF-8, and values that are an object of
/// numbers. Appends these values, as compact JSON, to `output`. Absent, and nothing appended, for every other record.
///
/// `isTypeKnown`: the type is one that was found to be UTF-8 before, and is not looked at again.
[[nodiscard]] std::optional<ReadableRecord> appendReadable(const platform::ManagedObjectView& record, bool isTypeKnown,
                                                           platform::ValueMapAppender& values,
                                                           platform::ByteBuffer& output);

}  // namespace tarvex
