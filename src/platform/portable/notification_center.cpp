#include "tarvex/platform/notification_center.h"

#include <algorithm>
#include <utility>

namespace tarvex::platform {

NotificationCenter::ObserverToken NotificationCenter::addObserverForName(std::string_view name, Block block) {
    const std::lock_guard lock(mutex_);
    const auto token = ObserverToken{++lastToken_};
    observers_.push_back(
        {.token = token, .name = std::string(name), .block = std::make_shared<const Block>(std::move(block))});
    return token;
}

void NotificationCenter::removeObserver(ObserverToken token) {
    std::shared_ptr<const Block> removed;  // released after the lock: what it holds may use the centre as it goes
    const std::lock_guard lock(mutex_);
    const auto observer = std::ranges::find(observers_, token, &Observer::token);
    if (observer == observers_.end()) return;
    removed = std::move(observer->block);
    observers_.erase(observer);
}

void NotificationCenter::post(std::string_view name) {
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
