#include "recording_backend.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "self_signed_certificate.h"

namespace tarvex::test {

namespace {

void write(const std::filesystem::path& path, const std::string& contents) {
    const std::filesystem::path unfinished = path.string() + ".part";
    std::ofstream file(unfinished, std::ios::binary);
    file << contents;
    file.close();
    if (!file) throw std::runtime_error("Cannot write " + unfinished.string());
    std::filesystem::rename(unfinished, path);
}

std::optional<std::size_t> countSamples(const std::string& document) {
    const auto json = nlohmann::json::parse(document, nullptr, false);
    if (!json.is_object() || !json.contains("trackingData") || !json["trackingData"].is_array()) return std::nullopt;
    return json["trackingData"].size();
}

}  // namespace

class RecordingBackend::Server {
public:
    Server(Options options, std::function<void(const Document&)> received)
        : options_(std::move(options)),
          received_(std::move(received)),
          certificate_(options_.host),
          pem_(certificate_.pem()),
          http_(certificate_.certificate(), certificate_.key()) {
        if (!http_.is_valid()) throw std::runtime_error("The HTTPS server does not take its certificate");
        http_.Post("/tracking", [this](const auto& request, auto& response) { receive(request, response); });
        port_ = http_.bind_to_any_port("127.0.0.1");
        if (port_ < 0) throw std::runtime_error("No port on 127.0.0.1 is free");

        std::filesystem::create_directories(options_.directory);
        write(options_.directory / "certificate.pem", pem_);
        write(options_.directory / "port", std::to_string(port_) + "\n");
        thread_ = std::jthread([this] {
            http_.listen_after_bind();
            ended_ = true;
        });
        // A server that is stopped before it runs would run for ever.
        while (!http_.is_running()) {
            if (ended_) throw std::runtime_error("The HTTPS server cannot listen");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    ~Server() { http_.stop(); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const { return port_; }
    const std::string& pem() const { return pem_; }

private:
    void receive(const httplib::Request& request, httplib::Response& response) {
        const auto refuse = [&response](int status, const std::string& why) {
            response.status = status;
            response.set_content(why + "\n", "text/plain");
        };
        if (!request.get_header_value("Content-Type").starts_with("application/json"))
            return refuse(415, "A document is application/json");
        const auto samples = countSamples(request.body);
        if (!samples) return refuse(400, "A document is a JSON object with an array \"trackingData\"");

        const std::scoped_lock lock(mutex_);
        const std::string name = "document-" + std::to_string(++count_) + ".json";
        write(options_.directory / name, request.body);
        received_({.file = options_.directory / name, .bytes = request.body.size(), .samples = *samples});
        response.status = options_.status;
    }

    Options options_;
    std::function<void(const Document&)> received_;
    SelfSignedCertificate certificate_;
    std::string pem_;
    httplib::SSLServer http_;
    int port_ = -1;
    std::mutex mutex_;
    int count_ = 0;
    std::atomic<bool> ended_ = false;
    std::jthread thread_;
};

RecordingBackend::RecordingBackend(Options options, std::function<void(const Document&)> received)
    : server_(std::make_unique<Server>(std::move(options), std::move(received))) {}

RecordingBackend::~RecordingBackend() = default;

std::uint16_t RecordingBackend::port() const {
    return static_cast<std::uint16_t>(server_->port());
}

const std::string& RecordingBackend::certificatePem() const {
    return server_->pem();
}

}  // namespace tarvex::test
