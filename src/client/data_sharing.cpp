#include "client/data_sharing.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include "client/sender.h"
#include "values/host_boundary.h"

namespace tarvex {

namespace {

/// Patience of the deletion after an upload, which no caller waits for. Samples are stored in between.
constexpr std::chrono::seconds deletionPatience{10};

Client::Result outcome(const std::optional<platform::UrlResponse>& response,
                       const std::optional<platform::TransportError>& error) {
    if (error) return std::unexpected(TarvexError::httpError(error->localizedDescription));
    if (!response || response->statusCode != 200)
        return std::unexpected(TarvexError::httpError("The request was not successfull (statusCode != 200)."));
    return {};
}

std::atomic<int> backgroundUploads = 0;

// With the time that the transport gives a handler that runs, the exit takes less than a second.
void awaitBackgroundUploads() {
    constexpr std::chrono::milliseconds grace{450};
    constexpr std::chrono::milliseconds step{5};
    const auto deadline = std::chrono::steady_clock::now() + grace;
    while (backgroundUploads > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(step);
}

// Counts as one until the last copy is gone. A host whose last window closes goes to the background and ends at once:
// its exit waits for the upload, before the transport's own exit handler, which was registered earlier, stops that.
std::shared_ptr<const void> backgroundUpload() {
    static const int registered = std::atexit(&awaitBackgroundUploads);
    static_cast<void>(registered);
    ++backgroundUploads;
    return {&backgroundUploads, [](const void*) { --backgroundUploads; }};
}

}  // namespace

DataSharing::DataSharing(platform::Platform& platform, PersistenceController& store, std::string_view endpoint)
    : platform_(platform), store_(store), endpoint_(endpoint) {}

DataSharing::~DataSharing() {
    if (didEnterBackgroundNotification_)
        platform_.notificationCenter().removeObserver(*didEnterBackgroundNotification_);
}

void DataSharing::uploadInBackground() {
    didEnterBackgroundNotification_ = platform_.notificationCenter().addObserverForName(
        platform::applicationDidEnterBackground, [weakSelf = weak_from_this()] {
            if (const auto self = weakSelf.lock()) self->upload(true, {}, backgroundUpload());
        });
}

void DataSharing::share(bool deleteIfSuccessfull, Client::ShareCompletion completion) {
    upload(deleteIfSuccessfull, std::move(completion), nullptr);
}

void DataSharing::upload(bool deleteIfSuccessfull, Client::ShareCompletion completion,
                         std::shared_ptr<const void> underWay) {
    auto document = store_.loadTrackingData([this] { return sender(platform_); });
    if (!document) return callHost(completion, std::unexpected(TarvexError::cannotLoadTrackingData()));

    auto url = Url::parse(endpoint_);
    if (!url) return callHost(completion, std::unexpected(TarvexError::httpError("Cannot parse backend url String")));

    platform::UrlRequest request{.url = std::move(*url),
                                 .method = "POST",
                                 .headers = {{"Content-Type", "application/json"}},
                                 .body = std::make_shared<const platform::ByteBuffer>(std::move(*document))};
    auto handler = [self = shared_from_this(), deleteIfSuccessfull, completion = std::move(completion),
                    underWay = std::move(underWay)](const auto& response, const auto& error) {
        self->handleUploadResponse(response, error, deleteIfSuccessfull, completion);
    };
    platform_.urlSession().dataTask(std::move(request), std::move(handler))->resume();
}

void DataSharing::handleUploadResponse(const std::optional<platform::UrlResponse>& response,
                                       const std::optional<platform::TransportError>& error, bool deleteIfSuccessfull,
                                       const Client::ShareCompletion& completion) {
    const Client::Result result = outcome(response, error);
    if (result && deleteIfSuccessfull) store_.deleteAllTrackingData(deletionPatience);
    callHost(completion, result);
}

}  // namespace tarvex
