#include "tarvex/client.h"

#include <cassert>
#include <string_view>
#include <utility>

#include "client/data_sharing.h"
#include "client/sender.h"
#include "client/tracking_sessions.h"
#include "consent/consent.h"
#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"
#include "values/host_boundary.h"

namespace tarvex {

namespace {

/// Receives the samples. The host is fixed when the library is built.
constexpr std::string_view backendEndpoint = "https://" TARVEX_BACKEND_HOST "/tracking";

class HostingController final : public ViewController {
public:
    explicit HostingController(InformationView rootView) : rootView_(std::move(rootView)) {}
    const InformationView& rootView() const override { return rootView_; }

private:
    InformationView rootView_;
};

std::string hostName(const platform::Bundle& host) {
    for (const std::string_view key : {"CFBundleDisplayName", "CFBundleName"}) {
        if (auto name = host.stringForInfoDictionaryKey(key)) return *std::move(name);
    }
    return "Unknown";
}

// Copies of the view, of its bodies and of their buttons share the host's closure and what it holds.
Client::ConsentCompletion shared(Client::ConsentCompletion closure) {
    if (!closure) return nullptr;
    return [closure = std::make_shared<Client::ConsentCompletion>(std::move(closure))](bool decision) {
        (*closure)(decision);
    };
}

}  // namespace

Client& Client::shared() {
    // Never destroyed: timers, uploads and host threads may outlive the end of main.
    static Client& instance = *new Client(platform::Platform::current(), PersistenceController::shared());
    return instance;
}

Client::Client(platform::Platform& platform, PersistenceController& store)
    : platform_(platform),
      store_(store),
      sessions_(std::make_shared<TrackingSessions>(platform, store)),
      sharing_(std::make_shared<DataSharing>(platform, store, backendEndpoint)) {
    sharing_->uploadInBackground();
    userID(platform);
}

Client::~Client() = default;

std::unordered_map<DataReader, bool> Client::trackingInProgress() const {
    return sessions_->trackingInProgress();
}

bool Client::hasConsentedToTracking(const DataReader& reader) const {
    return hasConsented(platform_.userDefaults(), reader.kind());
}

InformationView Client::informationView(std::optional<std::string> applicationName,
                                        std::optional<std::string> description, std::vector<DataReader> reader,
                                        std::optional<Url> learnMoreURL, ConsentCompletion completion) const {
    assert(isOnMainThread() && "a Client is thread-bound: call this on the main thread");
    InformationView view;
    view.platform_ = &platform_;
    view.appName_ = applicationName ? *std::move(applicationName) : hostName(platform_.bundles().mainBundle());
    view.description_ = std::move(description);
    view.readers_ = std::move(reader);
    view.informationURL_ = std::move(learnMoreURL);
    view.completeWithConsent_ = tarvex::shared(std::move(completion));
    return view;
}

std::shared_ptr<ViewController> Client::informationViewController(std::optional<std::string> applicationName,
                                                                  std::optional<std::string> description,
                                                                  std::vector<DataReader> reader,
                                                                  std::optional<Url> learnMoreURL,
                                                                  ConsentCompletion completion) const {
    return std::make_shared<HostingController>(informationView(std::move(applicationName), std::move(description),
                                                               std::move(reader), std::move(learnMoreURL),
                                                               std::move(completion)));
}

void Client::startTracking(const std::vector<DataReader>& readers, std::shared_ptr<View> view,
                           const StartCompletion& completion) {
    sessions_->start(readers, view, completion);
}

void Client::stopTracking(const DataReader& reader) {
    sessions_->stop(reader);
}

void Client::stopTracking() {
    sessions_->stopAll();
}

void Client::shareTrackingData(bool deleteIfSuccessfull, ShareCompletion completion) {
    assert(isOnMainThread() && "a Client is thread-bound: call this on the main thread");
    sharing_->share(deleteIfSuccessfull, std::move(completion));
}

void Client::deleteTrackingData() {
    store_.deleteAllTrackingData();
}

std::int64_t Client::trackingDataCount() const {
    return store_.countTrackingData().value_or(0);
}

}  // namespace tarvex
