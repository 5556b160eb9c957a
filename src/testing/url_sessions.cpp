#include <atomic>
#include <mutex>
#include <utility>

#include "platform/curl/curl_url_session.h"
#include "tarvex/testing/loopback_url_session.h"
#include "tarvex/testing/recording_url_session.h"

namespace tarvex::testing {

std::unique_ptr<platform::UrlSession> makeLoopbackUrlSession(std::uint16_t port, std::string certificatePem) {
    return std::make_unique<platform::CurlUrlSession>(platform::CurlTransportOptions{
        .trustedCertificatesPem = std::move(certificatePem),
        .connectTo = platform::CurlTransportOptions::ConnectTo{
            .host = TARVEX_BACKEND_HOST, .port = 443, .targetHost = "127.0.0.1", .targetPort = port}});
}

// The requests; shared with the tasks, which may outlive the session.
class RecordingUrlSession::Record {
public:
    void add(Request request, CompletionHandler handler) {
        const std::scoped_lock lock(mutex_);
        requests_.push_back(std::move(request));
        handlers_.push_back(std::move(handler));
    }

    std::vector<Request> requests() const {
        const std::scoped_lock lock(mutex_);
        return requests_;
    }

    CompletionHandler takeHandler(std::size_t index) {
        const std::scoped_lock lock(mutex_);
        return index < handlers_.size() ? std::exchange(handlers_[index], nullptr) : nullptr;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
    std::vector<CompletionHandler> handlers_;
};

class RecordingUrlSession::Task final : public platform::UrlSessionTask {
public:
    Task(platform::UrlRequest request, CompletionHandler handler, std::shared_ptr<Record> record)
        : request_(std::move(request)), handler_(std::move(handler)), record_(std::move(record)) {}

    void resume() override {
        if (resumed_.test_and_set()) return;
        record_->add({.method = request_.method,
                      .url = request_.url.string(),
                      .headers = request_.headers,
                      .body = request_.body ? std::string(request_.body->view()) : std::string(),
                      .timeout = request_.timeout},
                     std::move(handler_));
    }

private:
    platform::UrlRequest request_;
    CompletionHandler handler_;
    std::shared_ptr<Record> record_;
    std::atomic_flag resumed_;
};

RecordingUrlSession::RecordingUrlSession() : record_(std::make_shared<Record>()) {}

RecordingUrlSession::~RecordingUrlSession() = default;

std::vector<RecordingUrlSession::Request> RecordingUrlSession::requests() const {
    return record_->requests();
}

bool RecordingUrlSession::respond(std::size_t index, std::optional<platform::UrlResponse> response,
                                  std::optional<platform::TransportError> error) {
    const CompletionHandler handler = record_->takeHandler(index);
    if (!handler) return false;
    handler(response, std::move(error));
    return true;
}

std::unique_ptr<platform::UrlSessionTask> RecordingUrlSession::dataTask(platform::UrlRequest request,
                                                                        CompletionHandler handler) {
    return std::make_unique<Task>(std::move(request), std::move(handler), record_);
}

}  // namespace tarvex::testing
