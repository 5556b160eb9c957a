#include "storage/readable_record.h"

namespace tarvex {

bool appendValuesOfReadable(const platform::ManagedObjectView& record, bool isTypeKnown,
                            platform::ValueMapAppender& values, platform::ByteBuffer& output) {
    if (!record.timestamp || !record.type || !record.data) return false;
    if (!isTypeKnown && !platform::isValidUtf8(*record.type)) return false;
    return values.append({reinterpret_cast<const char*>(record.data->data()), record.data->size()}, output);
}

}  // namespace tarvex
