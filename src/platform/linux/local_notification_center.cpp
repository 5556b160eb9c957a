#include "platform/linux/local_notification_center.h"

#include <utility>

namespace tarvex::platform {

NotificationCenter::ObserverToken LocalNotificationCenter::addObserverForName(std::string_view name, Block block) {
    const std::lock_guard lock(mutex_);
    const auto token = ObserverToken{++lastToken_};
    observers_.push_back(
        {.token = token, .name = std::string(name), .block = std::make_shared<const Block>(std::move(block))});
    return token;
}

void LocalNotificationCenter::removeObserver(ObserverToken token) {
    const std::lock_guard lock(mutex_);
    std::erase_if(observers_, [token](const Observer& observer) { return observer.token == token; });
}

void LocalNotificationCenter::post(std::string_view name) {
    std::vector<std::shared_ptr<const Block>> blocks;
    {
        const std::lock_guard lock(mutex_);
        for (const Observer& observer : observers_) {
            if (observer.name == name) blocks.push_back(observer.block);
        }
    }
    for (const auto& block : blocks)
        (*block)();
}

}  // namespace tarvex::platform
