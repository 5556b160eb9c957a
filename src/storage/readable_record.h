#pragma once

#include "tarvex/platform/byte_buffer.h"
#include "tarvex/platform/json.h"
#include "tarvex/platform/object_store.h"

namespace tarvex {

/// Says which record can be read, and so is uploaded: it has a time, a type in UTF-8, and values that are an object of
/// numbers. Appends these values, as compact JSON, to `output`; false, and nothing appended, for every other record.
///
/// `isTypeKnown`: the type is one that was found to be UTF-8 before, and is not looked at again.
[[nodiscard]] bool appendValuesOfReadable(const platform::ManagedObjectView& record, bool isTypeKnown,
                                          platform::ValueMapAppender& values, platform::ByteBuffer& output);

}  // namespace tarvex
