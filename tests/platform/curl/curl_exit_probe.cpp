// Ends while an upload is under way, in the way that its first argument names. It writes a byte when the end may come,
// and ends at SIGTERM.

#include <netdb.h>
#include <unistd.h>

#include <csignal>
#include <latch>

#include "platform/curl/curl_url_session.h"
#include "platform/curl/posted_request.h"
#include "storage/persistence_controller.h"
#include "tarvex/client.h"
#include "tarvex/platform/platform.h"
#include "temporary_directory.h"

namespace {

using namespace tarvex;
using namespace tarvex::platform;

std::string_view mode;
std::latch exiting(1);

// A session that is older than the library's exit handler, and therefore destroyed after it.
std::unique_ptr<CurlUrlSession> oldest;

CurlTransportOptions options(const std::string& directory, const std::string& port) {
    if (mode.starts_with("resolver")) return {};
    return {.trustedCertificatesPem = test::contentsOf(directory + "/certificate.pem"),
            .connectTo = CurlTransportOptions::ConnectTo{TARVEX_BACKEND_HOST, 443, "127.0.0.1",
                                                         static_cast<std::uint16_t>(std::stoi(port))}};
}

void writeReady() {
    static_cast<void>(write(STDOUT_FILENO, "!", 1));
}

// A transfer no longer begins then, so that only a document that cannot be made has an outcome.
void shareTooLate() {
    Client::shared().shareTrackingData(false, [](const auto&) { std::_Exit(1); });
}

void shareAndWait() {
    std::promise<bool> shared;
    Client::shared().shareTrackingData(false, [&](const auto& result) { shared.set_value(result.has_value()); });
    if (!shared.get_future().get()) std::_Exit(2);
}

struct LastObject {
    ~LastObject() {
        if (mode == "host-shares") shareTooLate();
    }
} lastObject;

int hostThatShares(const std::string& directory, const std::string& port) {
    std::atexit(&shareTooLate);  // before the library's own handler, and therefore called after it
    auto host = Platform::makeLinux({.dataDirectory = directory + "/data", .bundleDirectory = directory});
    host->setUrlSession(std::make_unique<CurlUrlSession>(options(directory, port)));
    if (!Platform::install(std::move(host))) return 3;
    PersistenceController::shared().saveTrackingData(DataReader::ambientLight(1), {{"lux", 1e5}});
    shareAndWait();
    return std::atexit(&shareAndWait);
}

}  // namespace

// The resolver of this process hangs.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char*, const char*, const addrinfo*,
                                                                  addrinfo**) {
    if (mode == "resolver-hangs") writeReady();
    std::this_thread::sleep_for(std::chrono::minutes(10));
    return EAI_FAIL;
}

int main(int, char** argv) {
    mode = argv[1];
    if (mode == "host-shares") return hostThatShares(argv[2], argv[3]);
    sigset_t awaited;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGTERM);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    oldest = std::make_unique<CurlUrlSession>(options(argv[2], argv[3]));
    std::atexit([] { exiting.count_down(); });
    const auto body = test::bodyOf(std::string(20'000'000, 'x'));
    const std::chrono::milliseconds timeout(mode == "resolver-times-out" ? 200 : 60'000);
    const auto request = test::request(body, timeout, "https://" TARVEX_BACKEND_HOST "/tracking");
    const auto task = oldest->dataTask(request, [request](const auto&, const auto&) {
        if (mode == "handler-exits") std::exit(0);
        writeReady();
        if (mode == "handler-hangs") std::this_thread::sleep_for(std::chrono::minutes(10));
        if (mode != "handler-sends-again") return;
        exiting.wait();
        oldest->dataTask(request, [](const auto&, const auto&) {})->resume();
    });
    task->resume();
    int received = 0;
    return sigwait(&awaited, &received);
}
