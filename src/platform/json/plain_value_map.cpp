#include "platform/json/plain_value_map.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarvex::platform {

namespace {

constexpr std::size_t longestNumber = 300;  // this many digits are finite

// Printable ASCII without the bytes that end a name, escape, or end the map.
constexpr std::array<bool, 256> plainBytes = [] {
    std::array<bool, 256> plain{};
    for (std::size_t byte = ' '; byte < 0x7F; ++byte)
        plain[byte] = byte != '"' && byte != '\\' && byte != '}';
    return plain;
}();

// The place of the reading. No step passes a closing brace: the one at the end of the text bounds them all.
class Cursor {
public:
    explicit Cursor(const char* begin) : at_(begin) {}

    bool isAt(const char* place) const { return at_ == place; }

    bool take(char byte) {
        if (*at_ != byte) return false;
        ++at_;
        return true;
    }

    bool takeNewName() {
        if (!take('"')) return false;
        const char* begin = at_;
        while (plainBytes[static_cast<unsigned char>(*at_)])
            ++at_;
        return at_ != begin && isNew(*begin, at_[-1]) && take('"');
    }

    bool takeNumber() {
        const char* begin = at_;
        take('-');
        if (!take('0') && !takeDigits()) return false;
        if (take('.') && !takeDigits()) return false;
        return static_cast<std::size_t>(at_ - begin) <= longestNumber;
    }

private:
    bool takeDigits() {
        const char* begin = at_;
        while (static_cast<unsigned char>(*at_ - '0') < 10U)
            ++at_;
        return at_ != begin;
    }

    bool isNew(char first, char last) {
        const unsigned trace = static_cast<unsigned char>(first) * 5U + static_cast<unsigned char>(last);
        const std::uint64_t bit = std::uint64_t{1} << (trace % 64U);
        if ((traces_ & bit) != 0) return false;
        traces_ |= bit;
        return true;
    }

    const char* at_;
    std::uint64_t traces_ = 0;  // two names that leave the same one might be the same name
};

}  // namespace

bool isPlainValueMap(std::string_view text) {
    if (!text.starts_with('{') || !text.ends_with('}')) return false;
    Cursor cursor(text.data() + 1);
    do {
        if (!cursor.takeNewName() || !cursor.take(':') || !cursor.takeNumber()) return false;
    } while (cursor.take(','));
    return cursor.isAt(&text.back());
}

}  // namespace tarvex::platform
