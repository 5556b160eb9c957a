#include "collector/service/service.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "collector/commands/directory.h"
#include "collector/http/self_signed_certificate.h"
#include "collector/http/server.h"
#include "collector/ingest/importer.h"
#include "collector/research/research_page.h"
#include "collector/service/announcement.h"
#include "collector/service/daily.h"
#include "collector/service/export_routes.h"
#include "collector/service/ingestion.h"
#include "collector/service/workers.h"

namespace tarvex::collector {
namespace {

using namespace std::chrono_literals;

constexpr double secondsOfADay = 86'400;

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void log(const std::string& line) {
    std::cerr << line + "\n" << std::flush;
}

/// True when the journal keeps what this program prints, for all who may read it.
bool isKeptByTheJournal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat output{};
    return stream != nullptr && ::fstat(STDOUT_FILENO, &output) == 0 &&
           stream == std::to_string(output.st_dev) + ":" + std::to_string(output.st_ino);
}

/// Before this time, samples have expired.
double expiry(const Configuration& configuration) {
    if (configuration.retentionDays == 0) return -std::numeric_limits<double>::infinity();
    return now() - configuration.retentionDays * secondsOfADay;
}

HttpServer::Limits limitsOf(const Configuration& configuration) {
    HttpServer::Limits limits;
    limits.body = configuration.limits.body;
    limits.idle = std::chrono::seconds(configuration.limits.idle);
    limits.leastBytesPerSecond = static_cast<std::uint32_t>(configuration.limits.leastSpeed);
    limits.connections = configuration.limits.connections;
    limits.connectionsOfAnAddress = configuration.limits.connectionsOfAnAddress;
    return limits;
}

std::optional<HttpServer::Certificate> certificateOf(const Configuration& configuration) {
    if (configuration.isPlain) return std::nullopt;
    const auto& ingest = configuration.ingest;
    if (!ingest.certificate.empty()) return HttpServer::Certificate{.chain = ingest.certificate, .key = ingest.key};
    HttpServer::Certificate own{.chain = configuration.directory / "certificate.pem",
                                .key = configuration.directory / "key.pem"};
    if (!std::filesystem::exists(own.chain)) makeSelfSignedCertificate(own, ingest.names);
    return own;
}

std::unique_ptr<HttpServer> openIngestion(const Configuration& configuration,
                                          const std::optional<HttpServer::Certificate>& certificate,
                                          Importer& importer) {
    return std::make_unique<HttpServer>(
        HttpServer::Options{.address = configuration.ingest.address,
                            .port = configuration.ingest.port,
                            .certificate = certificate,
                            .limits = limitsOf(configuration),
                            .spool = configuration.directory,
                            .screen = [&importer](const RequestHead& head) { return screenPost(head, importer); },
                            .handle =
                                [&importer](Request request, std::function<void(Response)> respond) {
                                    importer.submit(std::move(request), std::move(respond));
                                }});
}

/// The page, its listener, and the threads that answer.
class PageService {
public:
    explicit PageService(const Configuration& configuration)
        : configuration_(configuration),
          token_(pageToken(configuration)),
          page_(makePage()),
          server_({.address = configuration.page.address,
                   .port = configuration.page.port,
                   .certificate = certificateOfPage(configuration),
                   .limits = limitsOfPage(configuration),
                   .spool = configuration.directory,
                   .handle = [this](Request request, std::function<void(Response)> respond) {
                       answer(std::move(request), std::move(respond));
                   }}) {}

    std::uint16_t port() const { return server_.port(); }
    std::string address() const { return pageAddress(configuration_, port(), token_); }
    /// What a log may say: without the token.
    std::string openAddress() const { return pageAddress(configuration_, port(), ""); }
    HttpServer& server() { return server_; }

    /// Takes the token that is in the collector's directory now. On the thread that made the object.
    void renewToken() {
        const std::string token = pageToken(configuration_);
        if (token == token_) return;
        token_ = token;
        const auto page = makePage();
        const std::lock_guard lock(mutex_);
        page_ = page;
    }

private:
    std::shared_ptr<ResearchPage> makePage() {
        return std::make_shared<ResearchPage>(ResearchPage::Options{
            .open = [this] { return openStore(configuration_.engine); },
            .access = {.token = token_,
                       .port = [this] { return port(); },
                       .hosts = configuration_.page.names,
                       .isEncrypted = !configuration_.page.certificate.empty()},
            .expected = {.light = configuration_.expectedLight, .distance = configuration_.expectedDistance},
            .now = now,
            .exports =
                [this](const RequestHead& head) {
                    return answerExport(head, [this] { return openStore(configuration_.engine); });
                }});
    }
    std::shared_ptr<ResearchPage> page() {
        const std::lock_guard lock(mutex_);
        return page_;
    }

    static std::optional<HttpServer::Certificate> certificateOfPage(const Configuration& configuration) {
        if (configuration.page.certificate.empty()) return std::nullopt;
        return HttpServer::Certificate{.chain = configuration.page.certificate, .key = configuration.page.key};
    }
    static HttpServer::Limits limitsOfPage(const Configuration& configuration) {
        HttpServer::Limits limits = limitsOf(configuration);
        limits.body = 64UL * 1024;
        return limits;
    }

    void answer(Request request, std::function<void(Response)> respond) {
        const auto shared = std::make_shared<Request>(std::move(request));
        workers_.run([this, shared, respond = std::move(respond)] {
            std::string body(shared->file.size(), '\0');
            body.resize(shared->file.read(0, std::as_writable_bytes(std::span(body))));
            respond(page()->answer(shared->head, body));
        });
    }

    const Configuration& configuration_;
    std::string token_;
    std::mutex mutex_;
    std::shared_ptr<ResearchPage> page_;
    Workers workers_{2};
    HttpServer server_;
};

/// Until a signal ends it.
void awaitEnd(const sigset_t& signals, const std::function<void()>& reload) {
    while (true) {
        int signal = 0;
        if (sigwait(&signals, &signal) != 0) continue;
        if (signal != SIGHUP) return;
        reload();
    }
}

/// What is served, and where that is said.
struct Serving {
    HttpServer& ingestion;
    std::filesystem::path certificate;  ///< of the ingestion; empty where it is plain
    PageService& page;
    std::optional<Announcement> announced = std::nullopt;

    Announcement::Contents contents() const {
        return {.port = ingestion.port(), .certificate = certificate, .pageAddress = page.address()};
    }

    void reload() {
        const auto refusal = ingestion.reloadCertificate();
        for (const auto& one : {refusal, page.server().reloadCertificate()})
            if (one) log("a certificate stays as it was: " + *one);
        try {
            page.renewToken();
            auto announcement = contents();
            if (refusal) announcement.certificate.clear();
            if (announced) announced->update(announcement);
        } catch (const std::exception& failure) {
            log(std::string("the token or the announcement stays as it was: ") + failure.what());
        }
        log("the certificates and the page's token were read again");
    }
};

}  // namespace

int serve(const Configuration& configuration, const std::filesystem::path& announcement) {
    // Before any thread begins: all of them leave the signals to this one.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    // What cannot be opened now shall be said now.
    const auto store = openConfiguredStore(configuration);
    for (const std::string& identifier : configuration.enrolled)
        store->enrol(identifier);
    Importer importer({.open = [&] { return openStore(configuration.engine); },
                       .spool = configuration.directory,
                       .needsEnrolment = configuration.needsEnrolment,
                       .enrolled = configuration.enrolled,
                       .expired = [&] { return expiry(configuration); },
                       .log = log});
    const Daily daily([&] {
        if (configuration.retentionDays == 0) return;
        try {
            const auto expired = openStore(configuration.engine)->expire(expiry(configuration));
            if (expired > 0) log("samples that were too old and are deleted: " + std::to_string(expired));
        } catch (const StoreUnavailable& failure) {
            log(std::string("samples that are too old stay until tomorrow: ") + failure.what());
        }
    });
    const auto certificate = certificateOf(configuration);
    const auto ingestion = openIngestion(configuration, certificate, importer);
    PageService page(configuration);
    std::cout << "Documents are received on " << hostAndPort(configuration.ingest.address, ingestion->port()) << "\n"
              << "The page: "
              << (isKeptByTheJournal() ? page.openAddress() + ", and `tarvex-collector token` gives access"
                                       : page.address())
              << "\n"
              << std::flush;
    Serving serving{.ingestion = *ingestion, .certificate = certificate ? certificate->chain : "", .page = page};
    if (!announcement.empty()) serving.announced.emplace(announcement, serving.contents());
    awaitEnd(signals, [&] { serving.reload(); });
    serving.announced.reset();
    log("ending");
    constexpr auto patience = 30s;
    page.server().stop(1s);
    ingestion->stop(patience);
    return 0;
}

}  // namespace tarvex::collector
