#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/export.h"

namespace tarvex::platform {

/// Posted on the main thread each time the host application went to the background.
inline constexpr std::string_view applicationDidEnterBackground = "applicationDidEnterBackground";

/// Named events within the process, and their observers. Thread-safe.
class TARVEX_EXPORT NotificationCenter {
public:
    using Block = std::function<void()>;
    enum class ObserverToken : std::uint64_t {};

    /// Calls `block` for each later post of `name`, synchronously on the posting thread, until it is removed.
    [[nodiscard]] ObserverToken addObserverForName(std::string_view name, Block block);

    /// No post that begins afterwards reaches the observer; one that is under way may still do so.
    void removeObserver(ObserverToken token);

    /// Calls the observers of `name` in the order of their registration, on the calling thread. No lock is held
    /// meanwhile: a block may add and remove observers.
    void post(std::string_view name);

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
