#include "tarvex/platform/json.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include "platform/json/plain_value_map.h"

namespace tarvex::platform {

namespace {

namespace ondemand = simdjson::ondemand;
using simdjson::SUCCESS;

constexpr int deepestNesting = 64;

// simdjson's own objects are made at their first use, and destroyed in the reverse order of that. Used first of all,
// when this library is loaded, they outlive the host's static objects and exit handlers, in which it may still share.
[[gnu::constructor(101)]] void useSimdjson() {
    [[maybe_unused]] const bool valid = simdjson::validate_utf8("", 0);
}

/// `text` is followed by simdjson::SIMDJSON_PADDING readable bytes, and lives as long as the document. False for text
/// that is not UTF-8 or has no structure at all; the rest is found out while the document is read.
bool begin(std::string_view text, ondemand::parser& parser, ondemand::document& document) {
    const auto begun = parser.iterate(text.data(), text.size(), text.size() + simdjson::SIMDJSON_PADDING).get(document);
    if (begun == simdjson::MEMALLOC) throw std::bad_alloc();
    return begun == SUCCESS;
}

bool isAtEnd(ondemand::document& document) {
    const char* location = nullptr;
    return document.current_location().get(location) == simdjson::OUT_OF_BOUNDS;
}

// Decoding

std::optional<JsonValue> converted(ondemand::value value, int depth);

std::optional<JsonValue> converted(ondemand::array array, int depth) {
    JsonValue::Array elements;
    for (auto element : array) {
        ondemand::value value;
        if (std::move(element).get(value) != SUCCESS) return std::nullopt;
        auto content = converted(value, depth + 1);
        if (!content) return std::nullopt;
        elements.push_back(std::move(*content));
    }
    return JsonValue{std::move(elements)};
}

std::optional<JsonValue> converted(ondemand::object object, int depth) {
    JsonValue::Object members;
    for (auto member : object) {
        ondemand::field field;
        std::string_view unescaped;
        if (std::move(member).get(field) != SUCCESS || field.unescaped_key().get(unescaped) != SUCCESS)
            return std::nullopt;
        std::string name(unescaped);
        auto content = converted(field.value(), depth + 1);
        if (!content) return std::nullopt;
        members.insert_or_assign(std::move(name), std::move(*content));
    }
    return JsonValue{std::move(members)};
}

template <typename Content>
std::optional<JsonValue> scalar(ondemand::value value) {
    Content content{};
    if (value.get(content) != SUCCESS) return std::nullopt;
    if constexpr (std::is_same_v<Content, std::string_view>)
        return JsonValue{std::string(content)};
    else
        return JsonValue{content};
}

std::optional<JsonValue> converted(ondemand::value value, int depth) {
    using Type = ondemand::json_type;
    Type type{};
    if (depth > deepestNesting || value.type().get(type) != SUCCESS) return std::nullopt;
    if (type == Type::number) return scalar<double>(value);
    if (type == Type::string) return scalar<std::string_view>(value);
    if (type == Type::boolean) return scalar<bool>(value);
    if (ondemand::array array; type == Type::array && value.get(array) == SUCCESS) return converted(array, depth);
    if (ondemand::object object; type == Type::object && value.get(object) == SUCCESS) return converted(object, depth);
    if (bool null = false; type == Type::null && value.is_null().get(null) == SUCCESS && null) return JsonValue();
    return std::nullopt;
}

// Value maps

// The names met in one object, as they are written; few enough to be compared one by one.
class Names {
public:
    /// False when `name` repeats or is one too many.
    bool add(std::string_view name) {
        const auto known = std::span(names_).first(count_);
        if (count_ == names_.size() || std::ranges::find(known, name) != known.end()) return false;
        names_[count_++] = name;
        return true;
    }

private:
    std::array<std::string_view, 8> names_;
    std::size_t count_ = 0;
};

// A member's name as it is written; absent when it contains escapes. Its closing quote is known to be there.
std::optional<std::string_view> plainName(ondemand::field& field) {
    const char* begin = field.key().raw();
    const char* end = begin;
    while (*end != '"' && *end != '\\')
        ++end;
    if (*end == '\\') return std::nullopt;
    return std::string_view(begin, end);
}

// True for an object of numbers in its shortest layout, its names without escapes and different; what is refused here
// may still be an object of numbers. `text` is followed by padding, see `begin`.
bool isCompactValueMap(std::string_view text, ondemand::parser& parser) {
    ondemand::document document;
    ondemand::object object;
    if (!begin(text, parser, document) || document.get_object().get(object) != SUCCESS) return false;

    Names names;
    std::size_t compactSize = 2;  // the braces
    for (auto member : object) {
        ondemand::field field;
        double number = 0;
        if (std::move(member).get(field) != SUCCESS) return false;
        const auto name = plainName(field);
        const std::string_view token = field.value().raw_json_token();
        if (field.value().get_double().get(number) != SUCCESS) return false;
        if (!name || !names.add(*name) || token.back() <= ' ') return false;
        compactSize += name->size() + token.size() + std::strlen(R"("":,)");
    }
    if (compactSize > 2) --compactSize;  // no comma behind the last member
    return isAtEnd(document) && compactSize == text.size();
}

// A member at a time, the last of each name. False, and nothing appended, when one of them is not a number.
bool appendRewritten(std::string_view text, ByteBuffer& output) {
    const auto decoded = decodeJson(text);
    const auto* members = decoded ? std::get_if<JsonValue::Object>(&decoded->value) : nullptr;
    if (members == nullptr) return false;
    const std::size_t before = output.size();
    char separator = '{';
    for (const auto& [name, member] : *members) {
        output.append(std::exchange(separator, ','));
        appendJsonString(name, output);
        output.append(':');
        const auto* number = std::get_if<double>(&member.value);
        if (number == nullptr || !appendJsonNumber(*number, output)) {
            output.truncate(before);
            return false;
        }
    }
    output.append(members->empty() ? "{}" : "}");
    return true;
}

// Writing

bool isPlain(char c) {
    return static_cast<unsigned char>(c) - 0x20U < 0x5FU && c != '"' && c != '\\';
}

/// Bytes of the character at the beginning of `text`; 0 when it is not UTF-8.
std::size_t characterSize(std::string_view text) {
    // The leading ones of the first byte are the number of bytes; a character of one byte has none.
    const int leadingOnes = std::countl_one(static_cast<unsigned char>(text.front()));
    const auto size = static_cast<std::size_t>(std::max(1, leadingOnes));
    return size <= text.size() && simdjson::validate_utf8(text.substr(0, size)) ? size : 0;
}

void appendEscape(char c, ByteBuffer& output) {
    if (c == '"' || c == '\\') {
        output.append('\\');
        output.append(c);
        return;
    }
    constexpr std::string_view digits = "0123456789abcdef";
    output.append("\\u00");
    output.append(digits[static_cast<unsigned char>(c) / 16U]);
    output.append(digits[static_cast<unsigned char>(c) % 16U]);
}

}  // namespace

std::optional<JsonValue> decodeJson(std::string_view text) {
    // In an array, so that a number alone is read like one in an object.
    std::string padded;
    padded.reserve(text.size() + 2 + simdjson::SIMDJSON_PADDING);
    padded.append("[").append(text).append("]").append(simdjson::SIMDJSON_PADDING, '\0');
    ondemand::parser parser;
    ondemand::document document;
    ondemand::array array;
    if (!begin({padded.data(), text.size() + 2}, parser, document) || document.get_array().get(array) != SUCCESS)
        return std::nullopt;
    auto value = converted(array, -1);
    if (!value || !isAtEnd(document)) return std::nullopt;
    auto& elements = std::get<JsonValue::Array>(value->value);
    return elements.size() == 1 ? std::optional(std::move(elements.front())) : std::nullopt;
}

bool isValidUtf8(std::string_view text) {
    return simdjson::validate_utf8(text);
}

void appendJsonString(std::string_view text, ByteBuffer& output) {
    output.append('"');
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
        output.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) break;
        const std::size_t size = characterSize(text);
        if (size == 0)
            output.append("\uFFFD");
        else if (size == 1)
            appendEscape(text.front(), output);
        else
            output.append(text.substr(0, size));
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    output.append('"');
}

bool appendJsonNumber(double number, ByteBuffer& output) {
    if (!std::isfinite(number)) return false;
    if (number == 0 && std::signbit(number)) {
        output.append("-0.0");  // many a reader takes "-0" for the integer 0
        return true;
    }
    constexpr std::size_t longest = 32;
    const std::span<char> spare = output.spare(longest);
    const auto written = std::to_chars(spare.data(), spare.data() + longest, number);
    output.extend(static_cast<std::size_t>(written.ptr - spare.data()));
    return true;
}

// Takes memory at its first use only, as much as the longest text needs.
struct ValueMapAppender::Parser {
    ondemand::parser parser;
};

ValueMapAppender::ValueMapAppender() : parser_(std::make_unique<Parser>()) {}
ValueMapAppender::~ValueMapAppender() = default;
ValueMapAppender::ValueMapAppender(ValueMapAppender&&) noexcept = default;
ValueMapAppender& ValueMapAppender::operator=(ValueMapAppender&&) noexcept = default;

bool ValueMapAppender::append(std::string_view text, ByteBuffer& output) {
    if (isPlainValueMap(text)) {
        output.append(text);
        return true;
    }
    // The bytes are validated where they will stay.
    char* begin = output.spare(text.size() + simdjson::SIMDJSON_PADDING).data();
    if (!text.empty()) std::memcpy(begin, text.data(), text.size());
    if (!isCompactValueMap({begin, text.size()}, parser_->parser)) return appendRewritten(text, output);
    output.extend(text.size());
    return true;
}

}  // namespace tarvex::platform
