#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/platform/byte_buffer.h"
#include "tarvex/platform/json.h"

namespace tarvex {

using platform::ValueMap;

/// One sample as it is uploaded.
struct TrackingData {
    enum class CodingKeys : std::uint8_t { timestamp, type, data };

    double timestamp;  ///< seconds since 1970-01-01 00:00:00 UTC, when the sample was stored
    std::string type;  ///< the reader's `id`
    ValueMap data;
};

/// The upload document: who, on which device, from which application, and all samples.
struct TrackingDataWrapper {
    enum class CodingKeys : std::uint8_t { userId, device, applicationIdentifier, trackingData };

    std::string userId;
    std::string device;
    std::string applicationIdentifier;
    std::vector<TrackingData> trackingData;
};

/// A key's JSON name.
std::string_view stringValue(TrackingData::CodingKeys key);
std::string_view stringValue(TrackingDataWrapper::CodingKeys key);

/// The key with this JSON name.
template <typename CodingKeys>
std::optional<CodingKeys> codingKey(std::string_view name);

/// Compact JSON. Absent, and nothing written, when a number in it is not finite.
std::optional<platform::ByteBuffer> encode(const ValueMap& values, const platform::JsonCoder& coder);
std::optional<platform::ByteBuffer> encode(const TrackingDataWrapper& wrapper, const platform::JsonCoder& coder);

/// Absent for text in which a key is missing, null or of the wrong type, at any depth. Other members are ignored.
std::optional<ValueMap> decodeValueMap(std::string_view text, const platform::JsonCoder& coder);
std::optional<TrackingData> decodeTrackingData(std::string_view text, const platform::JsonCoder& coder);
std::optional<TrackingDataWrapper> decodeTrackingDataWrapper(std::string_view text, const platform::JsonCoder& coder);

}  // namespace tarvex
