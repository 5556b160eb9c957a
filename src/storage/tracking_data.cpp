#include "storage/tracking_data.h"

#include <span>
#include <utility>
#include <variant>

#include "storage/upload_document.h"

namespace tarvex {

namespace {

using platform::JsonValue;

const JsonValue* member(const JsonValue& object, std::string_view name) {
    const auto* members = std::get_if<JsonValue::Object>(&object.value);
    if (members == nullptr) return nullptr;
    const auto found = members->find(name);
    return found == members->end() ? nullptr : &found->second;
}

template <typename T>
std::optional<T> typed(const JsonValue* value) {
    const T* content = value == nullptr ? nullptr : std::get_if<T>(&value->value);
    return content == nullptr ? std::nullopt : std::optional<T>(*content);
}

std::optional<ValueMap> valueMap(const JsonValue* value) {
    const auto* members = value == nullptr ? nullptr : std::get_if<JsonValue::Object>(&value->value);
    if (members == nullptr) return std::nullopt;
    ValueMap values;
    for (const auto& [name, content] : *members) {
        const auto* number = std::get_if<double>(&content.value);
        if (number == nullptr) return std::nullopt;
        values.emplace(name, *number);
    }
    return values;
}

std::optional<TrackingData> trackingData(const JsonValue& value) {
    using enum TrackingData::CodingKeys;
    const auto time = typed<double>(member(value, stringValue(timestamp)));
    auto kind = typed<std::string>(member(value, stringValue(type)));
    auto values = valueMap(member(value, stringValue(data)));
    if (!time || !kind || !values) return std::nullopt;
    return TrackingData{.timestamp = *time, .type = std::move(*kind), .data = std::move(*values)};
}

std::optional<std::vector<TrackingData>> samples(const JsonValue* value) {
    const auto* elements = value == nullptr ? nullptr : std::get_if<JsonValue::Array>(&value->value);
    if (elements == nullptr) return std::nullopt;
    std::vector<TrackingData> decoded;
    for (const JsonValue& element : *elements) {
        auto sample = trackingData(element);
        if (!sample) return std::nullopt;
        decoded.push_back(std::move(*sample));
    }
    return decoded;
}

}  // namespace

std::optional<platform::ByteBuffer> encode(const ValueMap& values) {
    platform::ByteBuffer output;
    char separator = '{';
    for (const auto& [name, value] : values) {
        output.append(std::exchange(separator, ','));
        platform::appendJsonString(name, output);
        output.append(':');
        if (!platform::appendJsonNumber(value, output)) return std::nullopt;
    }
    output.append(values.empty() ? "{}" : "}");
    return output;
}

std::optional<platform::ByteBuffer> encode(const TrackingDataWrapper& wrapper) {
    UploadDocument document(0);
    for (const TrackingData& sample : wrapper.trackingData) {
        const auto values = encode(sample.data);
        if (!values) return std::nullopt;
        document.append(
            {.timestamp = sample.timestamp, .type = sample.type, .data = std::as_bytes(std::span(values->view()))});
    }
    return document.finish(wrapper);
}

std::optional<ValueMap> decodeValueMap(std::string_view text) {
    const auto value = platform::decodeJson(text);
    return value ? valueMap(&*value) : std::nullopt;
}

std::optional<TrackingData> decodeTrackingData(std::string_view text) {
    const auto value = platform::decodeJson(text);
    return value ? trackingData(*value) : std::nullopt;
}

std::optional<TrackingDataWrapper> decodeTrackingDataWrapper(std::string_view text) {
    using enum TrackingDataWrapper::CodingKeys;
    const auto value = platform::decodeJson(text);
    if (!value) return std::nullopt;
    auto user = typed<std::string>(member(*value, stringValue(userId)));
    auto machine = typed<std::string>(member(*value, stringValue(device)));
    auto application = typed<std::string>(member(*value, stringValue(applicationIdentifier)));
    auto taken = samples(member(*value, stringValue(trackingData)));
    if (!user || !machine || !application || !taken) return std::nullopt;
    return TrackingDataWrapper{{std::move(*user), std::move(*machine), std::move(*application)}, std::move(*taken)};
}

}  // namespace tarvex
