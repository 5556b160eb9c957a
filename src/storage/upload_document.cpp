#include "storage/upload_document.h"

#include <utility>

namespace tarvex {

namespace {

constexpr std::size_t framingSize = 1024;  // everything but the samples, short of extraordinary identifiers

}  // namespace

UploadDocument::UploadDocument(const platform::JsonCoder& coder, std::size_t sizeBound)
    : coder_(coder), appendValueMap_(coder.valueMapAppender()) {
    bytes_.reserve(sizeBound + framingSize);
    bytes_.append(R"({"trackingData":[)");
}

void UploadDocument::appendSample(double timestamp, std::string_view type, std::string_view encodedValues) {
    if (!encodeType(type)) return;
    const std::size_t before = bytes_.size();
    bytes_.append(empty_ ? R"({"data":)" : R"(,{"data":)");
    if (!appendValueMap_(encodedValues, bytes_)) {
        bytes_.truncate(before);
        return;
    }
    bytes_.append(typeMember_.view());
    finite_ = coder_.appendNumber(timestamp, bytes_) && finite_;
    bytes_.append('}');
    empty_ = false;
}

bool UploadDocument::encodeType(std::string_view type) {
    if (type == type_) return true;
    if (!coder_.isValidUtf8(type)) return false;
    type_ = type;
    typeMember_.truncate(0);
    typeMember_.append(R"(,"type":)");
    coder_.appendString(type, typeMember_);
    typeMember_.append(R"(,"timestamp":)");
    return true;
}

std::optional<platform::ByteBuffer> UploadDocument::finish(std::string_view userId, std::string_view device,
                                                           std::string_view applicationIdentifier) {
    bytes_.append(R"(],"userId":)");
    coder_.appendString(userId, bytes_);
    bytes_.append(R"(,"device":)");
    coder_.appendString(device, bytes_);
    bytes_.append(R"(,"applicationIdentifier":)");
    coder_.appendString(applicationIdentifier, bytes_);
    bytes_.append('}');
    if (!finite_) return std::nullopt;
    return std::move(bytes_);
}

}  // namespace tarvex
