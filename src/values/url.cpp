#include "tarvex/url.h"

#include <glib.h>

#include <algorithm>

namespace tarvex {

namespace {

// GLib lets pass what RFC 3986 leaves out of every part of a URL.
bool neverInUrls(char c) {
    return c <= ' ' || c > '~' || std::string_view(R"("<>\^`{|})").find(c) != std::string_view::npos;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    std::string candidate(text);
    if (std::ranges::any_of(text, neverInUrls) || std::ranges::count(text, '#') > 1 ||
        g_uri_is_valid(candidate.c_str(), G_URI_FLAGS_NONE, nullptr) == 0)
        return std::nullopt;
    return Url(std::move(candidate));
}

}  // namespace tarvex
