#include "collector/research/access.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cctype>
#include <ranges>
#include <stdexcept>
#include <utility>

#include "collector/research/json_answers.h"

namespace tarvex::collector {
namespace {

constexpr std::string_view tokenIsMissing =
    "This page opens with its token only: take the address that “tarvex-collector token” prints.";

std::string lowered(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' '))
        text.remove_prefix(1);
    while (text.ends_with(' '))
        text.remove_suffix(1);
    return text;
}

Response unauthorised(const RequestHead& head) {
    Response response = refusal(401, tokenIsMissing);
    if (!head.path.starts_with("/api/")) {
        response.contentType = "text/html; charset=utf-8";
        response.body =
            "<!DOCTYPE html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
            "<meta name=\"viewport\" content=\"width=device-width\">\n"
            "<meta name=\"color-scheme\" content=\"light dark\">\n<title>Token needed</title>\n<p>" +
            std::string(tokenIsMissing) + "</p>\n</html>\n";
    }
    response.fields.emplace_back("WWW-Authenticate", "Bearer");
    return response;
}

/// The port behind a name; nothing where none is written.
std::string_view portOf(std::string_view host) {
    const std::size_t colon = host.rfind(':');
    const bool isWritten = colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos;
    return isWritten ? host.substr(colon + 1) : std::string_view();
}

std::string_view nameOf(std::string_view host) {
    const std::string_view port = portOf(host);
    return port.empty() ? host : host.substr(0, host.size() - port.size() - 1);
}

}  // namespace

Access::Access(Options options) : options_(std::move(options)) {
    if (options_.token.empty()) throw std::invalid_argument("the research page needs a token");
    for (std::string& host : options_.hosts)
        host = lowered(host);
}

std::optional<Response> Access::screen(const RequestHead& head) const {
    if (!isOwnHost(head)) return refusal(403, "This address is not the page's own.");
    if (!isOwnOrigin(head)) return refusal(403, "This request comes from another page.");
    const bool hasToken = std::ranges::any_of(head.query, [](const auto& pair) { return pair.first == "token"; });
    if (head.method == "GET" && head.path == "/" && hasToken)
        return isToken(head.parameter("token")) ? welcome() : unauthorised(head);
    if (hasBearer(head)) return std::nullopt;
    if (!hasCookie(head)) return unauthorised(head);
    // A cookie comes along on its own; a browser says which page a change comes from.
    const bool isFromPage = !head.field("origin").empty() || head.field("sec-fetch-site") == "same-origin";
    if (head.method == "POST" && !isFromPage) return refusal(403, "This request does not say where it comes from.");
    return std::nullopt;
}

bool Access::isOwnHost(const RequestHead& head) const {
    if (std::ranges::count(head.fields, "host", &std::pair<std::string, std::string>::first) != 1) return false;
    const std::string host = lowered(head.field("host"));
    return isLoopback(host) || std::ranges::any_of(options_.hosts, [&host](const std::string& own) {
               return host == own || (portOf(own).empty() && nameOf(host) == own);
           });
}

bool Access::isLoopback(std::string_view host) const {
    const std::string_view name = nameOf(host);
    if (name != "localhost" && name != "127.0.0.1" && name != "[::1]") return false;
    std::string_view port = portOf(host);
    if (port.empty()) port = options_.isEncrypted ? "443" : "80";
    return port == std::to_string(options_.port());
}

bool Access::isOwnOrigin(const RequestHead& head) const {
    const std::string_view site = head.field("sec-fetch-site");
    const bool isNavigation = head.method == "GET" && head.field("sec-fetch-mode") == "navigate";
    if (!site.empty() && site != "same-origin" && site != "none" && !isNavigation) return false;
    const std::string origin = lowered(head.field("origin"));
    if (origin.empty()) return true;
    const std::string host = lowered(head.field("host"));
    return origin == "https://" + host || (!options_.isEncrypted && origin == "http://" + host);
}

bool Access::isToken(std::string_view candidate) const {
    return candidate.size() == options_.token.size() &&
           CRYPTO_memcmp(candidate.data(), options_.token.data(), candidate.size()) == 0;
}

bool Access::hasBearer(const RequestHead& head) const {
    constexpr std::string_view scheme = "bearer ";
    const std::string_view field = head.field("authorization");
    return lowered(field.substr(0, scheme.size())) == scheme && isToken(trimmed(field.substr(scheme.size())));
}

bool Access::hasCookie(const RequestHead& head) const {
    const std::string start = cookieName() + "=";
    for (const auto& [name, value] : head.fields) {
        if (name != "cookie") continue;
        for (const auto part : std::views::split(std::string_view(value), ';')) {
            const std::string_view cookie = trimmed(std::string_view(part.begin(), part.end()));
            if (cookie.starts_with(start) && isToken(cookie.substr(start.size()))) return true;
        }
    }
    return false;
}

// Browsers do not keep the cookies of one port from another.
std::string Access::cookieName() const {
    return "tarvex_research_" + std::to_string(options_.port());
}

Response Access::welcome() const {
    return {.status = 303,
            .body = "The page is at /.\n",
            .fields = {{"Location", "/"},
                       {"Set-Cookie", cookieName() + "=" + options_.token + "; Path=/; HttpOnly; SameSite=Strict" +
                                          (options_.isEncrypted ? "; Secure" : "")}}};
}

}  // namespace tarvex::collector
