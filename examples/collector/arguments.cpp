#include "arguments.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace collector {

namespace {

std::optional<int> finalStatus(std::string_view text) {
    int status = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), status);
    const bool complete = error == std::errc() && end == text.data() + text.size();
    return complete && status >= 200 && status <= 599 ? std::optional(status) : std::nullopt;
}

}  // namespace

std::expected<Arguments, std::string> Arguments::parse(std::span<char*> words) {
    Arguments arguments;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string_view name = words[i];
        if (name == "--until-eof") {
            arguments.untilEndOfInput = true;
            continue;
        }
        if (++i == words.size()) return std::unexpected(std::string(name) + " is unknown, or lacks its value");
        const std::string_view value = words[i];
        if (name == "--directory") {
            arguments.collector.directory = value;
        } else if (name == "--host") {
            arguments.collector.host = value;
        } else if (name == "--status") {
            const auto status = finalStatus(value);
            if (!status) return std::unexpected("--status takes a number from 200 to 599, not " + std::string(value));
            arguments.collector.status = *status;
        } else {
            return std::unexpected(std::string(name) + " is unknown");
        }
    }
    if (arguments.collector.directory.empty()) return std::unexpected("--directory is missing");
    return arguments;
}

}  // namespace collector
