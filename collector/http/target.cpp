#include "collector/http/target.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <ranges>

namespace tarvex::collector {
namespace {

std::optional<char> unescape(std::string_view digits) {
    unsigned char byte = 0;
    const char* end = std::to_address(digits.end());
    const auto result = std::from_chars(std::to_address(digits.begin()), end, byte, 16);
    if (digits.size() != 2 || result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return static_cast<char>(byte);
}

enum class Plus : std::uint8_t { isItself, isSpace };

std::optional<std::string> decode(std::string_view text, Plus plus) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '%') {
            const auto byte = unescape(text.substr(at + 1, 2));
            if (!byte) return std::nullopt;
            decoded += *byte;
            at += 2;
        } else {
            decoded += text[at] == '+' && plus == Plus::isSpace ? ' ' : text[at];
        }
    }
    if (decoded.contains('\0')) return std::nullopt;
    return decoded;
}

bool isSafe(std::string_view path) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    if (!path.starts_with('/') || std::ranges::any_of(path, isControl)) return false;
    return std::ranges::none_of(path | std::views::split('/'), [](const auto& part) {
        const std::string_view segment(part.begin(), part.end());
        return segment == "." || segment == "..";
    });
}

/// A client may send the whole URL.
std::string_view withoutOrigin(std::string_view target) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (!target.starts_with(scheme)) continue;
        const auto end = target.find_first_of("/?", scheme.size());
        return end == std::string_view::npos ? "/" : target.substr(end);
    }
    return target;
}

}  // namespace

std::optional<Target> parseTarget(std::string_view target) {
    target = withoutOrigin(target);
    target = target.substr(0, target.find('#'));
    const auto mark = target.find('?');
    auto path = decode(target.substr(0, mark), Plus::isItself);
    if (!path || !isSafe(*path)) return std::nullopt;

    Target parsed{.path = *std::move(path), .query = {}};
    if (mark == std::string_view::npos) return parsed;
    for (const auto& part : target.substr(mark + 1) | std::views::split('&')) {
        const std::string_view parameter(part.begin(), part.end());
        if (parameter.empty()) continue;
        const auto equals = parameter.find('=');
        auto name = decode(parameter.substr(0, equals), Plus::isSpace);
        auto value = decode(equals == std::string_view::npos ? "" : parameter.substr(equals + 1), Plus::isSpace);
        if (!name || !value) return std::nullopt;
        parsed.query.emplace_back(*std::move(name), *std::move(value));
    }
    return parsed;
}

}  // namespace tarvex::collector
