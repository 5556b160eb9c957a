#include "platform/json/simdjson_coder.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <new>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>

#include "platform/json/plain_value_map.h"

namespace tarvex::platform {

namespace {

namespace ondemand = simdjson::ondemand;

constexpr int deepestNesting = 64;

enum class Shape : std::uint8_t { compactValueMap, needsRewriting, noValueMap };

// simdjson's own objects are made at their first use, and destroyed in the reverse order of that. Used first of all,
// when this library is loaded, they outlive the host's static objects and exit handlers, in which it may still share.
[[gnu::constructor(101)]] void useSimdjson() {
    [[maybe_unused]] const bool valid = simdjson::validate_utf8("", 0);
}

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

// Looks at the members of an object. `text` is followed by simdjson::SIMDJSON_PADDING readable bytes.
Shape shapeOf(std::string_view text, ondemand::parser& parser) {
    ondemand::document document;
    ondemand::object object;
    const auto read = parser.iterate(text.data(), text.size(), text.size() + simdjson::SIMDJSON_PADDING).get(document);
    if (read == simdjson::MEMALLOC) throw std::bad_alloc();
    if (read != simdjson::SUCCESS || document.get_object().get(object) != simdjson::SUCCESS) return Shape::noValueMap;

    Names names;
    bool asWritten = true;
    std::size_t compactSize = 2;  // the braces
    for (auto member : object) {
        ondemand::field field;
        double number = 0;
        if (std::move(member).get(field) != simdjson::SUCCESS) return Shape::noValueMap;
        const auto name = plainName(field);
        const std::string_view token = field.value().raw_json_token();
        // Not always right about zeros: it refuses those whose exponent has very many digits.
        if (field.value().get_double().get(number) != simdjson::SUCCESS || !std::isfinite(number))
            return Shape::needsRewriting;
        asWritten = asWritten && name && names.add(*name) && token.back() > ' ';
        compactSize += name.value_or("").size() + token.size() + std::strlen(R"("":,)");
    }
    const char* location = nullptr;
    if (document.current_location().get(location) != simdjson::OUT_OF_BOUNDS) return Shape::noValueMap;
    if (compactSize > 2) --compactSize;  // no comma behind the last member
    return asWritten && compactSize == text.size() ? Shape::compactValueMap : Shape::needsRewriting;
}

std::optional<nlohmann::json> parsed(std::string_view text) {
    // The parser would take a byte order mark, and a NUL for the end of the text.
    if (text.starts_with("\xEF\xBB\xBF") || text.find('\0') != std::string_view::npos) return std::nullopt;
    // It takes "-0" for an integer, which has no sign: of those that begin with one, only "-0" is zero.
    const auto keepSign = [](int /*depth*/, nlohmann::json::parse_event_t /*event*/, nlohmann::json& read) {
        if (read.type() == nlohmann::json::value_t::number_integer && read == 0) read = -0.0;
        return true;
    };
    auto value = nlohmann::json::parse(text, keepSign, false);
    return value.is_discarded() ? std::nullopt : std::optional(std::move(value));
}

std::optional<JsonValue> converted(const nlohmann::json& value, int depth) {
    if (depth > deepestNesting) return std::nullopt;
    if (value.is_null()) return JsonValue{std::monostate()};
    if (value.is_boolean()) return JsonValue{value.get<bool>()};
    if (value.is_number()) return JsonValue{value.get<double>()};
    if (value.is_string()) return JsonValue{value.get<std::string>()};
    if (value.is_array()) {
        JsonValue::Array elements;
        for (const auto& element : value) {
            auto content = converted(element, depth + 1);
            if (!content) return std::nullopt;
            elements.push_back(std::move(*content));
        }
        return JsonValue{std::move(elements)};
    }
    JsonValue::Object members;
    for (const auto& [name, member] : value.items()) {
        auto content = converted(member, depth + 1);
        if (!content) return std::nullopt;
        members.emplace(name, std::move(*content));
    }
    return JsonValue{std::move(members)};
}

// A member at a time, the last of each name.
bool appendRewritten(const JsonCoder& coder, std::string_view text, ByteBuffer& output) {
    const auto object = parsed(text);
    if (!object || !object->is_object()) return false;
    const std::size_t before = output.size();
    char separator = '{';
    for (const auto& [name, value] : object->items()) {
        output.append(std::exchange(separator, ','));
        coder.appendString(name, output);
        output.append(':');
        if (!value.is_number() || !coder.appendNumber(value.get<double>(), output)) {
            output.truncate(before);
            return false;
        }
    }
    output.append(object->empty() ? "{}" : "}");
    return true;
}

bool appendRead(const JsonCoder& coder, std::string_view text, ondemand::parser& parser, ByteBuffer& output) {
    if (isPlainValueMap(text)) {
        output.append(text);
        return true;
    }
    // The bytes are validated where they will stay.
    char* begin = output.spare(text.size() + simdjson::SIMDJSON_PADDING).data();
    if (!text.empty()) std::memcpy(begin, text.data(), text.size());
    switch (shapeOf({begin, text.size()}, parser)) {
        case Shape::compactValueMap:
            output.extend(text.size());
            return true;
        case Shape::needsRewriting:
            return appendRewritten(coder, text, output);
        case Shape::noValueMap:
            return false;
    }
    std::unreachable();
}

}  // namespace

std::optional<JsonValue> SimdjsonCoder::decode(std::string_view text) const {
    const auto value = parsed(text);
    return value ? converted(*value, 0) : std::nullopt;
}

bool SimdjsonCoder::isValidUtf8(std::string_view text) const {
    return simdjson::validate_utf8(text);
}

void SimdjsonCoder::appendString(std::string_view text, ByteBuffer& output) const {
    const auto plain = [](char c) { return static_cast<unsigned char>(c) - 0x20U < 0x5FU && c != '"' && c != '\\'; };
    if (std::ranges::all_of(text, plain)) {
        output.append('"');
        output.append(text);
        output.append('"');
        return;
    }
    using nlohmann::json;
    output.append(json(std::string(text)).dump(-1, ' ', false, json::error_handler_t::replace));
}

bool SimdjsonCoder::appendNumber(double number, ByteBuffer& output) const {
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

bool SimdjsonCoder::appendValueMap(std::string_view text, ByteBuffer& output) const {
    return valueMapAppender()(text, output);
}

// A parser takes memory at its first use only, as much as its longest text needs.
ValueMapAppender SimdjsonCoder::valueMapAppender() const {
    return [this, parser = ondemand::parser()](std::string_view text, ByteBuffer& output) mutable {
        return appendRead(*this, text, parser, output);
    };
}

}  // namespace tarvex::platform
