#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/byte_buffer.h"

namespace tarvex::platform {

/// Named numbers.
using ValueMap = std::map<std::string, double, std::less<>>;

/// A decoded JSON text. Of two members with one name the last counts.
struct JsonValue {
    using Array = std::vector<JsonValue>;
    using Object = std::map<std::string, JsonValue, std::less<>>;

    std::variant<std::monostate, bool, double, std::string, Array, Object> value;
};

/// Appends the value maps of one document, see `JsonCoder::appendValueMap`. Owns the memory that reading them takes.
using ValueMapAppender = std::move_only_function<bool(std::string_view text, ByteBuffer& output)>;

/// Reads and writes JSON (RFC 8259), compact and in UTF-8. Numbers are 64-bit floats and keep their value exactly.
/// Thread-safe.
class TARVEX_EXPORT JsonCoder {
public:
    virtual ~JsonCoder() = default;

    /// Absent for anything but one complete JSON text of valid UTF-8 whose numbers are finite.
    virtual std::optional<JsonValue> decode(std::string_view text) const = 0;

    /// Whether a string may stand in a document as it is.
    virtual bool isValidUtf8(std::string_view text) const = 0;

    /// Appends a JSON string; bytes that are not UTF-8 become U+FFFD.
    virtual void appendString(std::string_view text, ByteBuffer& output) const = 0;

    /// Appends a number in the shortest form that every reader reads back the same; false, and nothing appended, when
    /// it is not finite.
    [[nodiscard]] virtual bool appendNumber(double number, ByteBuffer& output) const = 0;

    /// Appends `text` when it is an object whose members are all numbers; false, and nothing appended, otherwise.
    /// The members keep their bytes, unless names repeat: then only the last of each is written.
    [[nodiscard]] virtual bool appendValueMap(std::string_view text, ByteBuffer& output) const = 0;

    /// `appendValueMap` for one document: what the coder needs again for each map is kept until the appender goes.
    /// Used by one thread at a time; not to outlive the coder.
    [[nodiscard]] virtual ValueMapAppender valueMapAppender() const {
        return [this](std::string_view text, ByteBuffer& output) { return appendValueMap(text, output); };
    }
};

}  // namespace tarvex::platform
