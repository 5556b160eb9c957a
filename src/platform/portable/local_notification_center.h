#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tarvex/platform/notification_center.h"

namespace tarvex::platform {

/// Observers and posts within one process.
class LocalNotificationCenter final : public NotificationCenter {
public:
    [[nodiscard]] ObserverToken addObserverForName(std::string_view name, Block block) override;
    void removeObserver(ObserverToken token) override;
    void post(std::string_view name) override;

private:
    struct Observer {
        ObserverToken token;
        std::string name;
        std::shared_ptr<const Block> block;  // shared with posts that are under way
    };

    std::mutex mutex_;
    std::uint64_t lastToken_ = 0;
    std::vector<Observer> observers_;
};

}  // namespace tarvex::platform
