// Ends while an upload is under way, in the way that its first argument names. The test talks to it over its standard
// streams: it writes a line when the end may come, and ends when it reads one.

#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "platform/linux/network/curl_url_session.h"
#include "platform/linux/network/posted_request.h"
#include "temporary_directory.h"

namespace {

using tarvex::platform::CurlTransportOptions;
using tarvex::platform::CurlUrlSession;

std::string_view mode;

// A session that is older than the library's exit handler, and therefore destroyed after it.
std::unique_ptr<CurlUrlSession> oldest;

CurlTransportOptions options(int argc, char** argv) {
    if (argc < 4) return {};
    return {.trustedCertificatesPem = tarvex::test::contentsOf(argv[3]),
            .connectTo = CurlTransportOptions::ConnectTo{.host = "backend.example",
                                                         .port = 443,
                                                         .targetHost = "127.0.0.1",
                                                         .targetPort = static_cast<std::uint16_t>(std::stoi(argv[2]))}};
}

void sayReady() {
    constexpr std::string_view line = "ready\n";
    static_cast<void>(write(STDOUT_FILENO, line.data(), line.size()));
}

}  // namespace

// The resolver of this process hangs.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char*, const char*, const addrinfo*,
                                                                  addrinfo**) {
    if (mode == "resolver-hangs") sayReady();
    std::this_thread::sleep_for(std::chrono::minutes(10));
    return EAI_FAIL;
}

int main(int argc, char** argv) {
    mode = argv[1];
    oldest = std::make_unique<CurlUrlSession>(options(argc, argv));
    auto body = std::make_shared<tarvex::platform::ByteBuffer>();
    constexpr std::size_t size = 20'000'000;
    std::ranges::fill(body->spare(size).first(size), 'x');
    body->extend(size);
    const std::chrono::milliseconds timeout(mode == "resolver-times-out" ? 200 : 60'000);
    const auto task = oldest->dataTask(tarvex::test::request(std::move(body), timeout), [](const auto&, const auto&) {
        if (mode == "handler-exits") std::exit(0);
        sayReady();
        if (mode == "handler-hangs") std::this_thread::sleep_for(std::chrono::minutes(10));
    });
    task->resume();
    std::string line;
    std::getline(std::cin, line);
    return 0;
}
