#include "platform/sqlite/sqlite_attribute.h"

#include <algorithm>
#include <type_traits>

#include "platform/sqlite/sqlite_connection.h"

namespace tarvex::platform {
namespace {

int bindBytes(sqlite3_stmt* statement, int parameter, const void* bytes, std::size_t size) {
    // A null pointer would be NULL, not an empty value.
    return sqlite3_bind_blob64(statement, parameter, bytes ? bytes : "", size, SQLITE_STATIC);
}

std::span<const std::byte> bytesOf(sqlite3_value* value) {
    const auto* bytes = static_cast<const std::byte*>(sqlite3_value_blob(value));
    return {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

AttributeView uuidFrom(std::span<const std::byte> bytes) {
    Uuid uuid;
    if (bytes.size() != uuid.bytes.size()) return std::monostate();
    std::ranges::transform(bytes, uuid.bytes.begin(), [](std::byte b) { return std::to_integer<std::uint8_t>(b); });
    return uuid;
}

}  // namespace

int bindAttribute(sqlite3_stmt* statement, int parameter, const AttributeValue& value) {
    return std::visit(
        [&]<typename Value>(const Value& v) {
            if constexpr (std::is_same_v<Value, Uuid>)
                return bindBytes(statement, parameter, v.bytes.data(), v.bytes.size());
            else if constexpr (std::is_same_v<Value, double>)
                return sqlite3_bind_double(statement, parameter, v);
            else if constexpr (std::is_same_v<Value, std::string>)
                return sqlite3_bind_text64(statement, parameter, v.data(), v.size(), SQLITE_STATIC, SQLITE_UTF8);
            else if constexpr (std::is_same_v<Value, std::vector<std::byte>>)
                return bindBytes(statement, parameter, v.data(), v.size());
            else
                return sqlite3_bind_null(statement, parameter);
        },
        value);
}

AttributeView readAttribute(sqlite3_stmt* row, int column, AttributeType type) {
    // Looked up once; it is not protected from other threads, and one thread at a time uses the connection.
    sqlite3_value* value = sqlite3_column_value(row, column);
    const int stored = sqlite3_value_type(value);
    if (type == AttributeType::number && (stored == SQLITE_FLOAT || stored == SQLITE_INTEGER))
        return sqlite3_value_double(value);
    if (type == AttributeType::string && stored == SQLITE_TEXT) return textOf(value);
    if (type == AttributeType::binary && stored == SQLITE_BLOB) return bytesOf(value);
    if (type == AttributeType::uuid && stored == SQLITE_BLOB) return uuidFrom(bytesOf(value));
    return std::monostate();
}

}  // namespace tarvex::platform
