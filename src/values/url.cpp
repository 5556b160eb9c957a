#include "tarvex/url.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace tarvex {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// RFC 3986 leaves these out of every part of a URL.
bool isNeverInUrls(char c) {
    return c <= ' ' || c > '~' || std::string_view(R"("<>\^`{|})").contains(c);
}

bool hasBrokenEscape(std::string_view text) {
    for (auto at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 1)) {
        if (at + 2 >= text.size() || !hexDigits.contains(text[at + 1]) || !hexDigits.contains(text[at + 2]))
            return true;
    }
    return false;
}

bool isScheme(std::string_view text) {
    return !text.empty() && letters.contains(text.front()) && std::ranges::all_of(text, [](char c) {
        return letters.contains(c) || digits.contains(c) || c == '+' || c == '-' || c == '.';
    });
}

bool isPort(std::string_view text) {
    std::uint16_t port{};
    const auto read = std::from_chars(text.data(), text.data() + text.size(), port);
    return text.empty() || (read.ec == std::errc() && read.ptr == text.data() + text.size());
}

// [user@]host[:port], where the host may be an address in brackets. Empty is allowed.
bool isAuthority(std::string_view text) {
    if (const auto at = text.find('@'); at != std::string_view::npos) text.remove_prefix(at + 1);
    if (text.starts_with('[')) {
        const auto end = text.find(']');
        in6_addr address{};
        if (end == std::string_view::npos ||
            inet_pton(AF_INET6, std::string(text.substr(1, end - 1)).c_str(), &address) != 1)
            return false;
        text.remove_prefix(end + 1);
        return text.empty() || (text.front() == ':' && isPort(text.substr(1)));
    }
    const auto colon = std::min(text.find(':'), text.size());
    return text.find_first_of("[]") == std::string_view::npos &&
           (colon == text.size() || isPort(text.substr(colon + 1)));
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    const auto colon = std::min(text.find(':'), text.size());
    if (colon == text.size() || !isScheme(text.substr(0, colon)) || std::ranges::any_of(text, isNeverInUrls) ||
        std::ranges::count(text, '#') > 1 || hasBrokenEscape(text))
        return std::nullopt;
    if (const auto rest = text.substr(colon + 1); rest.starts_with("//")) {
        const auto authority = rest.substr(2);
        if (!isAuthority(authority.substr(0, authority.find_first_of("/?#")))) return std::nullopt;
    }
    return Url(std::string(text));
}

}  // namespace tarvex
