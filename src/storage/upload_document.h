#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/platform/byte_buffer.h"
#include "tarvex/platform/json.h"

namespace tarvex {

/// Writes the upload document into one buffer, sample by sample.
///
/// The samples come first, who sends them last: the order of members carries no meaning, and so the user identifier
/// need not be known before the records have been read. Throws `std::bad_alloc`.
class UploadDocument {
public:
    /// `sizeBound`: at least the bytes that the samples will take; memory that stays unused is never taken.
    UploadDocument(const platform::JsonCoder& coder, std::size_t sizeBound);

    /// Appends a sample whose values are JSON already. One whose type is not UTF-8, or whose values are no map of
    /// numbers, is left out.
    void appendSample(double timestamp, std::string_view type, std::string_view encodedValues);

    /// The finished document; absent when a time stamp was not finite. Ends the use of this object.
    std::optional<platform::ByteBuffer> finish(std::string_view userId, std::string_view device,
                                               std::string_view applicationIdentifier);

private:
    bool encodeType(std::string_view type);

    const platform::JsonCoder& coder_;
    platform::ValueMapAppender appendValueMap_;
    platform::ByteBuffer bytes_;
    // One sample is mostly of the type of the one before: what stands between its values and its time is kept.
    std::optional<std::string> type_;
    platform::ByteBuffer typeMember_;
    bool empty_ = true;
    bool finite_ = true;
};

}  // namespace tarvex
