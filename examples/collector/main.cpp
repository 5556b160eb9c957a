// Receives what a host shares, on this machine, in place of the research backend.

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <exception>
#include <iostream>

#include "collector.h"

namespace {

int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

bool inputHasEnded() {
    std::array<char, 256> ignored{};
    return read(STDIN_FILENO, ignored.data(), ignored.size()) <= 0;
}

void waitForTheEnd(int signals, bool untilEndOfInput) {
    // poll passes over a negative descriptor.
    std::array<pollfd, 2> sources{pollfd{.fd = signals, .events = POLLIN, .revents = 0},
                                  pollfd{.fd = untilEndOfInput ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0}};
    while (true) {
        if (poll(sources.data(), sources.size(), -1) < 0) continue;
        if (sources[0].revents != 0) return;
        if (sources[1].revents != 0 && inputHasEnded()) return;
    }
}

}  // namespace

int main(int argc, char** argv) {
    collector::Collector::Options options{.directory = {}, .host = TARVEX_BACKEND_HOST};
    bool untilEndOfInput = false;
    CLI::App app("Plays the research backend on this machine: receives documents over HTTPS, one file for each.");
    app.add_option("--directory", options.directory, "Directory for certificate.pem, port and documents (required)")
        ->option_text("DIRECTORY")
        ->required();
    app.add_option("--host", options.host, "Backend that the certificate names (" TARVEX_BACKEND_HOST ")")
        ->option_text("NAME");
    app.add_option("--status", options.status, "HTTP status that answers a document, 200 to 599 (200)")
        ->option_text("NUMBER")
        ->check(CLI::Range(200, 599));
    app.add_flag("--until-eof", untilEndOfInput, "Ends when standard input ends");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    const int signals = openSignals();  // before any thread starts: all of them block the signals
    try {
        const collector::Collector receiver(options, [](const auto& document) {
            std::cout << document.file.filename().string() << ": " << document.bytes << " bytes, " << document.samples
                      << " samples\n"
                      << std::flush;
        });
        std::cout << "Receiving for " << options.host << " on 127.0.0.1:" << receiver.port() << '\n' << std::flush;
        waitForTheEnd(signals, untilEndOfInput);
    } catch (const std::exception& error) {
        std::cerr << "collector: " << error.what() << '\n';
        return 1;
    }
}
