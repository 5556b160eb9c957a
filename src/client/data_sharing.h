#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "storage/persistence_controller.h"
#include "tarvex/client.h"
#include "tarvex/platform/platform.h"

namespace tarvex {

/// The upload of the whole store, on request and whenever the host goes to the background.
///
/// Thread-bound. Owned by a shared pointer: an upload holds it until its outcome has been handled on the delivery
/// thread, the background observer does not.
class DataSharing : public std::enable_shared_from_this<DataSharing> {
public:
    DataSharing(platform::Platform& platform, PersistenceController& store, std::string_view endpoint);
    ~DataSharing();
    DataSharing(const DataSharing&) = delete;
    DataSharing& operator=(const DataSharing&) = delete;

    /// From now on every transition of the host to the background starts an upload with deletion. One that is under way
    /// when the process exits gets up to 450 ms to end.
    void uploadInBackground();

    /// See `Client::shareTrackingData`.
    void share(bool deleteIfSuccessfull, Client::ShareCompletion completion);

private:
    /// `underWay` is kept until the outcome has been handled, or is known not to come.
    void upload(bool deleteIfSuccessfull, Client::ShareCompletion completion, std::shared_ptr<const void> underWay);
    void handleUploadResponse(const std::optional<platform::UrlResponse>& response,
                              const std::optional<platform::TransportError>& error, bool deleteIfSuccessfull,
                              const Client::ShareCompletion& completion);

    platform::Platform& platform_;
    PersistenceController& store_;
    std::string_view endpoint_;
    std::optional<platform::NotificationCenter::ObserverToken> didEnterBackgroundNotification_;
};

}  // namespace tarvex
