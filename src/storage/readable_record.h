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
/// In the header, as it runs for each record of a document. `isTypeKnown`: the type is one that was found to be UTF-8
/// before, and is not looked at again.
[[nodiscard]] inline std::optional<ReadableRecord> appendReadable(const platform::ManagedObjectView& record,
                                                                  bool isTypeKnown, platform::ValueMapAppender& values,
                                                                  platform::ByteBuffer& output) {
    if (!record.timestamp || !record.type || !record.data) return std::nullopt;
    if (!isTypeKnown && !platform::isValidUtf8(*record.type)) return std::nullopt;
    const std::string_view text(reinterpret_cast<const char*>(record.data->data()), record.data->size());
    if (!values.append(text, output)) return std::nullopt;
    return ReadableRecord{.timestamp = *record.timestamp, .type = *record.type};
}

}  // namespace tarvex
