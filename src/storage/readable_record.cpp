#include "storage/readable_record.h"

namespace tarvex {

std::optional<ReadableRecord> appendReadable(const platform::ManagedObjectView& record, bool isTypeKnown,
                                             platform::ValueMapAppender& values, platform::ByteBuffer& output) {
    if (!record.timestamp || !record.type || !record.data) return std::nullopt;
    if (!isTypeKnown && !platform::isValidUtf8(*record.type)) return std::nullopt;
    const std::string_view text(reinterpret_cast<const char*>(record.data->data()), record.data->size());
    if (!values.append(text, output)) return std::nullopt;
    return ReadableRecord{.timestamp = *record.timestamp, .type = *record.type};
}

}  // namespace tarvex
