#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace console_host {

struct Arguments {
    static constexpr const char* usage =
        "usage: console_host [--seconds N] [--data DIRECTORY] [--recording FILE]\n"
        "                    [--pictures DIRECTORY] [--collector DIRECTORY]\n"
        "  --seconds N            how long to sample, a day at most (10)\n"
        "  --data DIRECTORY       where samples and consent are kept (the host's own place)\n"
        "  --recording FILE       the day of light to play where the machine has no sensor\n"
        "  --pictures DIRECTORY   the photographs to look at where the machine has no camera\n"
        "  --collector DIRECTORY  post to the collector on this machine that runs on that directory,\n"
        "                         instead of the research backend\n";

    int seconds = 10;
    std::optional<std::filesystem::path> dataDirectory;
    std::optional<std::filesystem::path> recording;
    std::optional<std::filesystem::path> pictureDirectory;
    std::optional<std::filesystem::path> collectorDirectory;

    /// The command line, or what is wrong with it.
    static std::expected<Arguments, std::string> parse(std::span<char*> words);
};

}  // namespace console_host
