#include "storage/upload_document.h"

#include <utility>

#include "storage/readable_record.h"

namespace tarvex {

namespace {

using Sample = TrackingData::CodingKeys;
using Document = TrackingDataWrapper::CodingKeys;

constexpr std::size_t framingSize = 1024;  // everything but the samples, short of extraordinary identifiers

/// `before`, the key's name in quotes, and a colon.
template <typename CodingKeys>
std::string member(char before, CodingKeys key) {
    return std::string(1, before).append("\"").append(stringValue(key)).append("\":");
}

}  // namespace

UploadDocument::UploadDocument(std::size_t sizeBound) : sampleBegin_("," + member('{', Sample::data)) {
    bytes_.reserve(sizeBound + framingSize);
    bytes_.append(member('{', Document::trackingData));
    bytes_.append('[');
}

void UploadDocument::append(const platform::ManagedObjectView& record) {
    const bool isTypeKnown = record.type && record.type == type_;
    const std::size_t before = bytes_.size();
    bytes_.append(std::string_view(sampleBegin_).substr(empty_ ? 1 : 0));
    const auto readable = appendReadable(record, isTypeKnown, values_, bytes_);
    if (!readable) {
        bytes_.truncate(before);
        return;
    }
    if (!isTypeKnown) encodeType(readable->type);
    bytes_.append(typeMember_.view());
    finite_ = platform::appendJsonNumber(readable->timestamp, bytes_) && finite_;
    bytes_.append('}');
    empty_ = false;
}

void UploadDocument::encodeType(std::string_view type) {
    type_ = type;
    typeMember_.truncate(0);
    typeMember_.append(member(',', Sample::type));
    platform::appendJsonString(type, typeMember_);
    typeMember_.append(member(',', Sample::timestamp));
}

std::optional<platform::ByteBuffer> UploadDocument::finish(const Sender& sender) {
    bytes_.append(']');
    for (const auto& [key, text] :
         {std::pair(Document::userId, &sender.userId), std::pair(Document::device, &sender.device),
          std::pair(Document::applicationIdentifier, &sender.applicationIdentifier)}) {
        bytes_.append(member(',', key));
        platform::appendJsonString(*text, bytes_);
    }
    bytes_.append('}');
    if (!finite_) return std::nullopt;
    return std::move(bytes_);
}

}  // namespace tarvex
