#include "tarvex/client.h"

#include <utility>

#include "client/backend_endpoint.h"
#include "client/consent_key.h"
#include "client/data_sharing.h"
#include "client/tracking_sessions.h"
#include "client/user_identifier.h"
#include "consent/view_factories.h"
#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"

namespace tarvex {

Client& Client::shared() {
    // Never destroyed: timers, uploads and host threads may outlive the end of main.
    static Client& instance = *new Client(platform::Platform::current(), PersistenceController::shared());
    return instance;
}

Client::Client(platform::Platform& platform, PersistenceController& store)
    : platform_(platform),
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
    return platform_.userDefaults().boolForKey(consentKey(reader.kind()));
}

InformationView Client::informationView(std::optional<std::string> applicationName,
                                        std::optional<std::string> description, std::vector<DataReader> reader,
                                        std::optional<Url> learnMoreURL, ConsentCompletion completion) const {
    return InformationViewFactory(platform_).informationView(std::move(applicationName), std::move(description),
                                                             std::move(reader), std::move(learnMoreURL),
                                                             std::move(completion));
}

std::shared_ptr<ViewController> Client::informationViewController(std::optional<std::string> applicationName,
                                                                  std::optional<std::string> description,
                                                                  std::vector<DataReader> reader,
                                                                  std::optional<Url> learnMoreURL,
                                                                  ConsentCompletion completion) const {
    return InformationViewFactory(platform_).informationViewController(std::move(applicationName),
                                                                       std::move(description), std::move(reader),
                                                                       std::move(learnMoreURL), std::move(completion));
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
    sharing_->share(deleteIfSuccessfull, std::move(completion));
}

void Client::deleteTrackingData() {
    sharing_->deleteAll();
}

std::int64_t Client::trackingDataCount() const {
    return sharing_->count();
}

}  // namespace tarvex
