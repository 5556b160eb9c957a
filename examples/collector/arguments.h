#pragma once

#include <expected>
#include <span>
#include <string>

#include "collector.h"

namespace collector {

struct Arguments {
    static constexpr const char* usage =
        "usage: collector --directory DIRECTORY [--host NAME] [--status N] [--until-eof]\n"
        "Plays the research backend on this machine.\n"
        "  --directory DIRECTORY  where certificate.pem, port and each received document are put\n"
        "  --host NAME            the backend that its certificate names (" TARVEX_BACKEND_HOST
        ")\n"
        "  --status N             what a document is answered with, 200 to 599 (200)\n"
        "  --until-eof            ends when standard input does\n";

    Collector::Options collector{.directory = {}, .host = TARVEX_BACKEND_HOST};
    bool untilEndOfInput = false;

    /// The command line, or what is wrong with it.
    static std::expected<Arguments, std::string> parse(std::span<char*> words);
};

}  // namespace collector
