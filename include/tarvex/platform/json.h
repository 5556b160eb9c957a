#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/byte_buffer.h"

// Reading and writing of JSON (RFC 8259), compact and in UTF-8. Numbers are 64-bit floats and keep their value exactly.
// The functions are thread-safe.

namespace tarvex::platform {

/// Named numbers.
using ValueMap = std::map<std::string, double, std::less<>>;

/// A decoded JSON text. Of two members with one name the last counts.
struct JsonValue {
    using Array = std::vector<JsonValue>;
    using Object = std::map<std::string, JsonValue, std::less<>>;

    std::variant<std::monostate, bool, double, std::string, Array, Object> value;

    friend bool operator==(const JsonValue&, const JsonValue&) = default;
};

/// Absent for anything but one complete JSON text of valid UTF-8, nested up to 64 deep, whose numbers are finite and
/// have exponents of up to 19 digits.
TARVEX_EXPORT std::optional<JsonValue> decodeJson(std::string_view text);

/// True for text that may stand in a document as it is.
TARVEX_EXPORT bool isValidUtf8(std::string_view text);

/// Appends a JSON string; bytes that are not UTF-8 become U+FFFD.
TARVEX_EXPORT void appendJsonString(std::string_view text, ByteBuffer& output);

/// Appends a number in the shortest form that every reader reads back the same; false, and nothing appended, when it is
/// not finite.
[[nodiscard]] TARVEX_EXPORT bool appendJsonNumber(double number, ByteBuffer& output);

/// Appends encoded value maps to documents, and keeps the memory that reading them takes. Reentrant.
class TARVEX_EXPORT ValueMapAppender {
public:
    ValueMapAppender();
    ~ValueMapAppender();
    ValueMapAppender(ValueMapAppender&&) noexcept;
    ValueMapAppender& operator=(ValueMapAppender&&) noexcept;

    /// Appends `text` when it is an object of numbers; false, and nothing appended, otherwise. Of members with one name
    /// the last counts. What is not in its shortest layout, or repeats a name, is written anew.
    [[nodiscard]] bool append(std::string_view text, ByteBuffer& output);

private:
    struct Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace tarvex::platform
