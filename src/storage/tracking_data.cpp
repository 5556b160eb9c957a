#include "storage/tracking_data.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <variant>

#include "storage/upload_document.h"

namespace tarvex {

namespace {

using platform::JsonValue;

// In the order of the key enumerations.
constexpr std::array<std::string_view, 3> sampleKeys{"timestamp", "type", "data"};
constexpr std::array<std::string_view, 4> documentKeys{"userId", "device", "applicationIdentifier", "trackingData"};

template <typename CodingKeys>
std::optional<CodingKeys> keyNamed(std::string_view name, std::span<const std::string_view> names) {
    const auto found = std::ranges::find(names, name);
    return found == names.end() ? std::nullopt : std::optional(static_cast<CodingKeys>(found - names.begin()));
}

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

std::string_view stringValue(TrackingData::CodingKeys key) {
    return sampleKeys.at(static_cast<std::size_t>(key));
}

std::string_view stringValue(TrackingDataWrapper::CodingKeys key) {
    return documentKeys.at(static_cast<std::size_t>(key));
}

template <>
std::optional<TrackingData::CodingKeys> codingKey(std::string_view name) {
    return keyNamed<TrackingData::CodingKeys>(name, sampleKeys);
}

template <>
std::optional<TrackingDataWrapper::CodingKeys> codingKey(std::string_view name) {
    return keyNamed<TrackingDataWrapper::CodingKeys>(name, documentKeys);
}

std::optional<platform::ByteBuffer> encode(const ValueMap& values, const platform::JsonCoder& coder) {
    platform::ByteBuffer output;
    char separator = '{';
    for (const auto& [name, value] : values) {
        output.append(std::exchange(separator, ','));
        coder.appendString(name, output);
        output.append(':');
        if (!coder.appendNumber(value, output)) return std::nullopt;
    }
    output.append(values.empty() ? "{}" : "}");
    return output;
}

std::optional<platform::ByteBuffer> encode(const TrackingDataWrapper& wrapper, const platform::JsonCoder& coder) {
    UploadDocument document(coder, 0);
    for (const TrackingData& sample : wrapper.trackingData) {
        const auto values = encode(sample.data, coder);
        if (!values) return std::nullopt;
        document.appendSample(sample.timestamp, sample.type, values->view());
    }
    return document.finish(wrapper.userId, wrapper.device, wrapper.applicationIdentifier);
}

std::optional<ValueMap> decodeValueMap(std::string_view text, const platform::JsonCoder& coder) {
    const auto value = coder.decode(text);
    return value ? valueMap(&*value) : std::nullopt;
}

std::optional<TrackingData> decodeTrackingData(std::string_view text, const platform::JsonCoder& coder) {
    const auto value = coder.decode(text);
    return value ? trackingData(*value) : std::nullopt;
}

std::optional<TrackingDataWrapper> decodeTrackingDataWrapper(std::string_view text, const platform::JsonCoder& coder) {
    using enum TrackingDataWrapper::CodingKeys;
    const auto value = coder.decode(text);
    if (!value) return std::nullopt;
    auto user = typed<std::string>(member(*value, stringValue(userId)));
    auto machine = typed<std::string>(member(*value, stringValue(device)));
    auto application = typed<std::string>(member(*value, stringValue(applicationIdentifier)));
    auto taken = samples(member(*value, stringValue(trackingData)));
    if (!user || !machine || !application || !taken) return std::nullopt;
    return TrackingDataWrapper{.userId = std::move(*user),
                               .device = std::move(*machine),
                               .applicationIdentifier = std::move(*application),
                               .trackingData = std::move(*taken)};
}

}  // namespace tarvex
