#pragma once

#include <chrono>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

namespace tarvex::platform {

enum class PortalAnswer : std::uint8_t {
    agreed,
    refused,      ///< by the user, or the portal went away before it answered
    failed,       ///< the portal replied with an error
    unavailable,  ///< there is no session bus that answers, no portal on it, or one that does not know the method
};

/// A question to the desktop portal, which shows a dialog of its own and answers later.
struct PortalRequest {
    static constexpr std::chrono::milliseconds usualBusTimeLimit{10'000};

    std::string interface;
    std::string method;
    std::vector<std::string> arguments;  ///< those before the options, all of them strings
    /// How long the bus may take for the connection, and for an answer of its own.
    std::chrono::milliseconds busTimeLimit = usualBusTimeLimit;

    /// Asks, and waits for the answer on the calling thread, however long the user takes; `refused` once `stop` is
    /// requested. The calling thread's default main context is left alone.
    PortalAnswer ask(const std::stop_token& stop) const;
};

}  // namespace tarvex::platform
