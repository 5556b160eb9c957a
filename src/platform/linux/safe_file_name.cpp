#include "platform/linux/safe_file_name.h"

#include <glib.h>

#include <cstddef>
#include <memory>

namespace tarvex::platform {
namespace {

using GText = std::unique_ptr<gchar, decltype([](gchar* text) { g_free(text); })>;

bool isPlain(char c) {
    return g_ascii_isalnum(c) || c == '.' || c == '-' || c == '_';
}

std::string percentEncoded(char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'%', digits[byte >> 4U], digits[byte & 0xfU]};
}

std::string digest(std::string_view text) {
    constexpr std::size_t digits = 32;
    const GText hex(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()), text.size()));
    return {hex.get(), digits};
}

}  // namespace

std::string safeFileName(std::string_view text) {
    constexpr std::size_t maximumLength = 143;
    std::string name;
    for (const char c : text) {
        if (isPlain(c) && (c != '.' || !name.empty()))
            name.push_back(c);
        else
            name += percentEncoded(c);
    }
    if (name.size() <= maximumLength) return name;
    const std::string end = "~" + digest(text);
    return name.substr(0, maximumLength - end.size()) + end;
}

}  // namespace tarvex::platform
