#include "platform/linux/network/curl_url_session.h"

#include <atomic>
#include <utility>

#include "platform/linux/network/curl_delivery_thread.h"
#include "platform/linux/network/curl_transfer.h"

namespace tarvex::platform {
namespace {

class CurlUrlSessionTask final : public UrlSessionTask {
public:
    CurlUrlSessionTask(std::unique_ptr<CurlTransfer> transfer, std::weak_ptr<CurlDeliveryThread> delivery)
        : transfer_(std::move(transfer)), delivery_(std::move(delivery)) {}

    void resume() override {
        if (resumed_.test_and_set()) return;
        if (const auto delivery = delivery_.lock()) delivery->start(std::move(transfer_));
    }

private:
    std::atomic_flag resumed_;
    std::unique_ptr<CurlTransfer> transfer_;
    std::weak_ptr<CurlDeliveryThread> delivery_;
};

}  // namespace

CurlUrlSession::CurlUrlSession() : CurlUrlSession(CurlTransportOptions{}) {}

CurlUrlSession::CurlUrlSession(CurlTransportOptions options)
    : options_(std::move(options)), delivery_(std::make_shared<CurlDeliveryThread>()) {}

CurlUrlSession::~CurlUrlSession() {
    delivery_->end();
}

std::unique_ptr<UrlSessionTask> CurlUrlSession::dataTask(UrlRequest request, CompletionHandler handler) {
    return std::make_unique<CurlUrlSessionTask>(
        std::make_unique<CurlTransfer>(std::move(request), std::move(handler), options_), delivery_);
}

}  // namespace tarvex::platform
