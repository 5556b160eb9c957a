#include "collector/http/head_parser.h"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <algorithm>
#include <ranges>
#include <string>
#include <utility>

#include "collector/http/target.h"

namespace tarvex::collector {
namespace {

namespace http = boost::beast::http;

std::string_view toView(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

std::string toLower(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

}  // namespace

class HeadParser::Implementation {
public:
    explicit Implementation(std::uint32_t limit) {
        parser.header_limit(limit);
        parser.body_limit(boost::none);
    }

    http::request_parser<http::empty_body> parser;
};

HeadParser::HeadParser(std::uint32_t limit) : implementation_(std::make_unique<Implementation>(limit)), left_(limit) {}

HeadParser::~HeadParser() = default;

std::size_t HeadParser::take(std::string_view bytes) {
    boost::beast::error_code error;
    const std::size_t taken = implementation_->parser.put(boost::asio::buffer(bytes), error);
    const bool isTooLarge = taken > left_ || (error == http::error::need_more && bytes.size() >= left_);
    left_ -= std::min<std::uint64_t>(taken, left_);
    if (isTooLarge || error == http::error::header_limit)
        refusal_ = 431;
    else if (error && error != http::error::need_more)
        refusal_ = 400;
    return taken;
}

bool HeadParser::isDone() const {
    return implementation_->parser.is_header_done();
}

std::optional<IncomingHead> HeadParser::head() const {
    const auto& parser = implementation_->parser;
    const auto& message = parser.get();
    auto target = parseTarget(toView(message.target()));
    const bool isOld = message.version() < 11;
    // Without it nobody knows whom the client means.
    if (!target || (!isOld && message.count(http::field::host) != 1)) return std::nullopt;

    IncomingHead incoming{.head = {.method = std::string(toView(message.method_string())),
                                   .path = std::move(target->path),
                                   .query = std::move(target->query),
                                   .fields = {},
                                   .peer = {}},
                          .length = std::nullopt,
                          .hasTransferEncoding = message.count(http::field::transfer_encoding) != 0,
                          .keepsAlive = message.keep_alive(),
                          .isOld = isOld};
    for (const auto& field : message)
        incoming.head.fields.emplace_back(toLower(toView(field.name_string())), toView(field.value()));
    if (const auto length = parser.content_length()) incoming.length = *length;
    return incoming;
}

namespace {

std::string_view valueOf(const std::vector<std::pair<std::string, std::string>>& pairs, std::string_view name) {
    const auto found = std::ranges::find(pairs, name, &std::pair<std::string, std::string>::first);
    return found == pairs.end() ? std::string_view() : found->second;
}

}  // namespace

std::string_view RequestHead::field(std::string_view name) const {
    return valueOf(fields, name);
}

std::string_view RequestHead::parameter(std::string_view name) const {
    return valueOf(query, name);
}

}  // namespace tarvex::collector
