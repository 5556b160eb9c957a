#pragma once

#include "tarvex/platform/json.h"

namespace tarvex::platform {

/// Reads with simdjson, the rare shapes that it leaves aside with nlohmann's parser.
class SimdjsonCoder final : public JsonCoder {
public:
    std::optional<JsonValue> decode(std::string_view text) const override;
    bool isValidUtf8(std::string_view text) const override;
    void appendString(std::string_view text, ByteBuffer& output) const override;
    [[nodiscard]] bool appendNumber(double number, ByteBuffer& output) const override;
    [[nodiscard]] bool appendValueMap(std::string_view text, ByteBuffer& output) const override;
    [[nodiscard]] ValueMapAppender valueMapAppender() const override;
};

}  // namespace tarvex::platform
