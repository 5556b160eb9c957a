#include "arguments.h"

#include <charconv>
#include <string_view>

namespace console_host {

namespace {

constexpr int longestRun = 24 * 60 * 60;

std::optional<int> secondsIn(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole && number > 0 && number <= longestRun ? std::optional(number) : std::nullopt;
}

}  // namespace

std::expected<Arguments, std::string> Arguments::parse(std::span<char*> words) {
    Arguments arguments;
    for (std::size_t i = 1; i < words.size(); i += 2) {
        const std::string name = words[i];
        if (i + 1 == words.size()) return std::unexpected(name + " is unknown, or lacks its value");
        const std::string value = words[i + 1];
        if (name == "--seconds") {
            const auto seconds = secondsIn(value);
            if (!seconds) return std::unexpected("--seconds takes a whole number from 1 to 86400, not " + value);
            arguments.seconds = *seconds;
        } else if (name == "--data") {
            arguments.dataDirectory = value;
        } else if (name == "--recording") {
            arguments.recording = value;
        } else if (name == "--pictures") {
            arguments.pictureDirectory = value;
        } else if (name == "--collector") {
            arguments.collectorDirectory = value;
        } else {
            return std::unexpected(name + " is unknown");
        }
    }
    return arguments;
}

}  // namespace console_host
