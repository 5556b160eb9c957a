#pragma once

#include <array>
#include <cstddef>
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
    static constexpr std::array<std::string_view, 3> keyNames{"timestamp", "type", "data"};

    double timestamp;  ///< seconds since 1970-01-01 00:00:00 UTC, when the sample was stored
    std::string type;  ///< the reader's `id`
    ValueMap data;
};

/// The sender of a document: installation, device and application.
struct Sender {
    std::string userId;
    std::string device;
    std::string applicationIdentifier;
};

/// The upload document: its sender and all samples.
struct TrackingDataWrapper : Sender {
    enum class CodingKeys : std::uint8_t { userId, device, applicationIdentifier, trackingData };
    static constexpr std::array<std::string_view, 4> keyNames{"userId", "device", "applicationIdentifier",
                                                              "trackingData"};

    std::vector<TrackingData> trackingData;
};

/// A key's JSON name.
constexpr std::string_view stringValue(TrackingData::CodingKeys key) {
    return TrackingData::keyNames.at(static_cast<std::size_t>(key));
}
constexpr std::string_view stringValue(TrackingDataWrapper::CodingKeys key) {
    return TrackingDataWrapper::keyNames.at(static_cast<std::size_t>(key));
}

/// The key of `TrackingData` or `TrackingDataWrapper` with this JSON name.
template <typename Coded>
constexpr std::optional<typename Coded::CodingKeys> codingKey(std::string_view name) {
    for (std::size_t place = 0; place < Coded::keyNames.size(); ++place)
        if (Coded::keyNames[place] == name) return static_cast<typename Coded::CodingKeys>(place);
    return std::nullopt;
}

/// Compact JSON. Absent, and nothing written, when a number in it is not finite.
std::optional<platform::ByteBuffer> encode(const ValueMap& values);
std::optional<platform::ByteBuffer> encode(const TrackingDataWrapper& wrapper);

/// Absent for text in which a key is missing, null or of the wrong type, at any depth. Other members are ignored.
std::optional<ValueMap> decodeValueMap(std::string_view text);
std::optional<TrackingData> decodeTrackingData(std::string_view text);
std::optional<TrackingDataWrapper> decodeTrackingDataWrapper(std::string_view text);

}  // namespace tarvex
