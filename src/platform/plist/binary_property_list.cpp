#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/plist/property_list.h"

namespace tarvex::platform {
namespace {

constexpr std::size_t trailerSize = 32;
constexpr int maximumDepth = 512;
constexpr std::uint64_t memoryBudget = std::uint64_t{4} * 1024 * 1024;
constexpr std::uint64_t costOfObject = 16;

// The upper half of an object's marker byte.
enum Kind : std::uint8_t {
    singleton = 0x0,
    integer = 0x1,
    real = 0x2,
    date = 0x3,
    data = 0x4,
    asciiText = 0x5,
    utf16Text = 0x6,
    uid = 0x8,
    array = 0xa,
    set = 0xc,
    dictionary = 0xd
};

struct Object {
    std::uint8_t kind;
    std::string_view payload;
};

std::uint64_t bigEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<std::uint8_t>(byte);
    return value;
}

bool isAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c > 0; });
}

bool isUtf16(std::string_view text) {
    bool afterHighSurrogate = false;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const std::uint64_t unit = bigEndian(text.substr(i, 2));
        const bool isLowSurrogate = unit >= 0xdc00 && unit <= 0xdfff;
        if (unit == 0 || isLowSurrogate != afterHighSurrogate) return false;
        afterHighSurrogate = unit >= 0xd800 && unit <= 0xdbff;
    }
    return !afterHighSurrogate;
}

class Objects {
public:
    static std::optional<Objects> of(std::string_view bytes) {
        if (bytes.size() < trailerSize) return std::nullopt;
        const std::string_view trailer = bytes.substr(bytes.size() - trailerSize);
        Objects objects;
        objects.bytes_ = bytes.substr(0, bytes.size() - trailerSize);
        objects.offsetSize_ = bigEndian(trailer.substr(6, 1));
        objects.referenceSize_ = static_cast<std::size_t>(bigEndian(trailer.substr(7, 1)));
        objects.count_ = bigEndian(trailer.substr(8, 8));
        objects.root_ = bigEndian(trailer.substr(16, 8));
        objects.offsetTable_ = bigEndian(trailer.substr(24, 8));
        if (!isWidth(objects.offsetSize_) || !isWidth(objects.referenceSize_)) return std::nullopt;
        return objects;
    }

    bool isSafe() { return visit(root_, 0); }

private:
    Objects() = default;

    static bool isWidth(std::uint64_t bytes) { return bytes >= 1 && bytes <= 8; }

    bool visit(std::uint64_t index, int depth) {
        const auto object = at(index);
        if (!object || depth > maximumDepth) return false;
        const std::uint64_t cost = costOfObject + object->payload.size();
        if (cost > budget_) return false;
        budget_ -= cost;
        switch (object->kind) {
            case asciiText:
                return isAscii(object->payload);
            case utf16Text:
                return isUtf16(object->payload);
            case array:
            case set:
            case dictionary:
                return visitReferences(object->payload, depth + 1);
            default:
                return true;
        }
    }

    bool visitReferences(std::string_view references, int depth) {
        for (; !references.empty(); references.remove_prefix(referenceSize_)) {
            if (!visit(bigEndian(references.substr(0, referenceSize_)), depth)) return false;
        }
        return true;
    }

    std::optional<Object> at(std::uint64_t index) const {
        if (index >= count_ || index >= bytes_.size()) return std::nullopt;
        if (offsetTable_ > bytes_.size()) return std::nullopt;
        const auto offset = slice(offsetTable_ + index * offsetSize_, offsetSize_);
        if (!offset) return std::nullopt;
        const std::uint64_t position = bigEndian(*offset);
        const auto marker = slice(position, 1);
        if (!marker) return std::nullopt;
        const auto byte = static_cast<std::uint8_t>(marker->front());
        return object(static_cast<std::uint8_t>(byte >> 4), byte & 0xf, position + 1);
    }

    std::optional<Object> object(std::uint8_t kind, std::uint64_t length, std::uint64_t position) const {
        switch (kind) {
            case singleton:
                return Object{kind, {}};
            case integer:
            case real:
            case date:
                return withPayload(kind, position, std::uint64_t{1} << length, 1);
            case uid:
                return withPayload(kind, position, length + 1, 1);
            case data:
            case asciiText:
                return withCount(kind, length, position, 1);
            case utf16Text:
                return withCount(kind, length, position, 2);
            case array:
            case set:
                return withCount(kind, length, position, referenceSize_);
            case dictionary:
                return withCount(kind, length, position, 2 * referenceSize_);
            default:
                return std::nullopt;
        }
    }

    // A length of 15 stands for one that follows as an integer object.
    std::optional<Object> withCount(std::uint8_t kind, std::uint64_t count, std::uint64_t position,
                                    std::uint64_t unit) const {
        if (count != 0xf) return withPayload(kind, position, count, unit);
        const auto marker = slice(position, 1);
        if (!marker) return std::nullopt;
        const auto byte = static_cast<std::uint8_t>(marker->front());
        if (byte < 0x10 || byte > 0x13) return std::nullopt;
        const std::uint64_t width = std::uint64_t{1} << (byte & 0xf);
        const auto extended = slice(position + 1, width);
        if (!extended) return std::nullopt;
        return withPayload(kind, position + 1 + width, bigEndian(*extended), unit);
    }

    std::optional<Object> withPayload(std::uint8_t kind, std::uint64_t position, std::uint64_t count,
                                      std::uint64_t unit) const {
        if (count > bytes_.size()) return std::nullopt;
        const auto payload = slice(position, count * unit);
        if (!payload) return std::nullopt;
        return Object{kind, *payload};
    }

    std::optional<std::string_view> slice(std::uint64_t position, std::uint64_t length) const {
        if (position > bytes_.size() || length > bytes_.size() - position) return std::nullopt;
        return bytes_.substr(static_cast<std::size_t>(position), static_cast<std::size_t>(length));
    }

    std::string_view bytes_;  // without the trailer
    std::uint64_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t root_ = 0;
    std::uint64_t offsetTable_ = 0;
    std::uint64_t budget_ = memoryBudget;
};

}  // namespace

bool isSafeBinaryPropertyList(std::string_view bytes) {
    auto objects = Objects::of(bytes);
    return objects && objects->isSafe();
}

}  // namespace tarvex::platform
