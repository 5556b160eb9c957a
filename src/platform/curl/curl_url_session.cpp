#include "platform/curl/curl_url_session.h"

#include <atomic>
#include <utility>

#include "platform/curl/curl_transfer.h"
#include "platform/curl/curl_transfer_threads.h"

namespace tarvex::platform {
namespace {

class CurlUrlSessionTask final : public UrlSessionTask {
public:
    CurlUrlSessionTask(std::unique_ptr<CurlTransfer> transfer, std::weak_ptr<CurlTransferThreads> threads)
        : transfer_(std::move(transfer)), threads_(std::move(threads)) {}

    void resume() override {
        if (resumed_.test_and_set()) return;
        if (const auto threads = threads_.lock()) threads->start(std::move(transfer_));
    }

private:
    std::atomic_flag resumed_;
    std::unique_ptr<CurlTransfer> transfer_;
    std::weak_ptr<CurlTransferThreads> threads_;
};

}  // namespace

CurlUrlSession::CurlUrlSession() : CurlUrlSession(CurlTransportOptions{}) {}

CurlUrlSession::CurlUrlSession(CurlTransportOptions options)
    : options_(std::move(options)), threads_(std::make_shared<CurlTransferThreads>()) {}

CurlUrlSession::~CurlUrlSession() {
    threads_->end();
}

std::unique_ptr<UrlSessionTask> CurlUrlSession::dataTask(UrlRequest request, CompletionHandler handler) {
    return std::make_unique<CurlUrlSessionTask>(
        std::make_unique<CurlTransfer>(std::move(request), std::move(handler), options_), threads_);
}

}  // namespace tarvex::platform
