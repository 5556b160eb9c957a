#include "collector/http/answer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ranges>
#include <string_view>
#include <utility>

namespace tarvex::collector {
namespace {

constexpr std::array<std::pair<int, std::string_view>, 28> reasons{{
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {204, "No Content"},
    {206, "Partial Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {411, "Length Required"},
    {413, "Content Too Large"},
    {415, "Unsupported Media Type"},
    {417, "Expectation Failed"},
    {422, "Unprocessable Content"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {503, "Service Unavailable"},
}};

std::string_view reasonOf(int status) {
    const auto* found = std::ranges::find(reasons, status, &std::pair<int, std::string_view>::first);
    return found == reasons.end() ? "" : found->second;
}

/// What a field may hold: a line break would begin another one.
std::string inOneLine(std::string text) {
    std::ranges::replace_if(text, [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    return text;
}

std::string_view sentenceOf(int status) {
    switch (status) {
        case 400:
            return "The request is malformed.\n";
        case 411:
            return "The length of the body must be given in advance.\n";
        case 413:
            return "The body is larger than this server takes.\n";
        case 417:
            return "This server meets no expectation but 100-continue.\n";
        case 431:
            return "The head of the request is larger than this server takes.\n";
        case 503:
            return "The server cannot take it now.\n";
        default:
            return "The server failed.\n";
    }
}

}  // namespace

Response plainAnswer(int status) {
    Response response{.status = status, .body = std::string(sentenceOf(status))};
    if (status == 503) response.fields.emplace_back("Retry-After", "30");
    return response;
}

bool isBodiless(int status) {
    return status < 200 || status == 204 || status == 304;
}

std::string headOf(const Response& response, const Framing& framing) {
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " ";
    head.append(reasonOf(response.status)).append("\r\n");
    const auto add = [&head](std::string_view name, const std::string& value) {
        head.append(name).append(": ").append(value).append("\r\n");
    };
    if (!isBodiless(response.status)) {
        add("Content-Type", inOneLine(response.contentType));
        if (framing.isChunked) add("Transfer-Encoding", "chunked");
        if (!response.pieces) add("Content-Length", std::to_string(response.body.size()));
    }
    for (const auto& [name, value] : response.fields)
        add(inOneLine(name), inOneLine(value));
    if (framing.endsConnection) add("Connection", "close");
    return head.append("\r\n");
}

std::string chunkOf(const std::string& piece) {
    std::array<char, 2 * sizeof(std::size_t)> digits{};
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), piece.size(), 16).ptr;
    std::string chunk(std::as_const(digits).data(), end);
    return chunk.append("\r\n").append(piece).append("\r\n");
}

}  // namespace tarvex::collector
