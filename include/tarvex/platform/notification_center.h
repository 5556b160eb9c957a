#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "tarvex/export.h"

namespace tarvex::platform {

/// Posted on the main thread each time the host application went to the background.
inline constexpr std::string_view applicationDidEnterBackground = "applicationDidEnterBackground";

/// Tells observers in the process about named events. Thread-safe.
class TARVEX_EXPORT NotificationCenter {
public:
    using Block = std::function<void()>;
    enum class ObserverToken : std::uint64_t {};

    virtual ~NotificationCenter() = default;

    /// Calls `block` for each later post of `name`, synchronously on the posting thread, until it is removed.
    [[nodiscard]] virtual ObserverToken addObserverForName(std::string_view name, Block block) = 0;

    /// No post that begins afterwards reaches the observer; one that is under way may still do so.
    virtual void removeObserver(ObserverToken token) = 0;

    /// Calls the observers of `name` in the order of their registration, on the calling thread.
    virtual void post(std::string_view name) = 0;
};

}  // namespace tarvex::platform
