#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "storage/tracking_data.h"
#include "tarvex/platform/byte_buffer.h"
#include "tarvex/platform/json.h"
#include "tarvex/platform/object_store.h"

namespace tarvex {

/// Writes the upload document into one buffer, sample by sample.
///
/// The samples come first, the sender last: the order of members carries no meaning, and so the user identifier need
/// not be known before the records have been read. Throws `std::bad_alloc`.
class UploadDocument {
public:
    /// `sizeBound`: at least the bytes that the samples will take; memory that stays unused is never taken.
    explicit UploadDocument(std::size_t sizeBound);

    /// Appends a record; one that cannot be read is left out (see `appendReadable`).
    void append(const platform::ManagedObjectView& record);

    /// The finished document; absent when a time stamp was not finite. Ends the use of this object.
    std::optional<platform::ByteBuffer> finish(const Sender& sender);

private:
    void encodeType(std::string_view type);

    platform::ValueMapAppender values_;
    platform::ByteBuffer bytes_;
    const std::string sampleBegin_;
    // One sample is mostly of the type of the one before: the text between its values and its time is kept.
    std::optional<std::string> type_;
    platform::ByteBuffer typeMember_;
    bool empty_ = true;
    bool finite_ = true;
};

}  // namespace tarvex
