#include "storage/upload_document.h"

#include <utility>

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

void UploadDocument::appendSample(double timestamp, std::string_view type, std::string_view encodedValues) {
    if (!encodeType(type)) return;
    const std::size_t before = bytes_.size();
    bytes_.append(std::string_view(sampleBegin_).substr(empty_ ? 1 : 0));
    if (!values_.append(encodedValues, bytes_)) {
        bytes_.truncate(before);
        return;
    }
    bytes_.append(typeMember_.view());
    finite_ = platform::appendJsonNumber(timestamp, bytes_) && finite_;
    bytes_.append('}');
    empty_ = false;
}

bool UploadDocument::encodeType(std::string_view type) {
    if (type == type_) return true;
    if (!platform::isValidUtf8(type)) return false;
    type_ = type;
    typeMember_.truncate(0);
    typeMember_.append(member(',', Sample::type));
    platform::appendJsonString(type, typeMember_);
    typeMember_.append(member(',', Sample::timestamp));
    return true;
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
