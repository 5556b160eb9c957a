#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace tarvex::platform {

enum class PortalAnswer : std::uint8_t {
    agreed,
    refused,      ///< by the user, or the portal went away before it answered
    failed,       ///< the portal replied with an error
    unavailable,  ///< there is no session bus that answers, no portal on it, or one that does not know the method
};

/// A request to the desktop portal, which shows a dialog of its own and answers later.
struct PortalRequest {
    static constexpr std::chrono::milliseconds usualBusTimeLimit{10'000};

    std::string interface;
    std::string method;
    std::vector<std::string> arguments;  ///< those before the options, all of them strings
    /// Longest wait for the connection to the bus, and for an answer of the bus itself.
    std::chrono::milliseconds busTimeLimit = usualBusTimeLimit;

    /// Makes the request, and waits for the answer on the calling thread, however long the user takes; `refused` once
    /// `stop` is requested. Does not use the thread's default main context.
    PortalAnswer ask(const std::stop_token& stop) const;
};

/// The requests to the portal that are under way: one thread for each, since each waits for a person. Thread-safe.
class PortalConversations {
public:
    using Handler = std::function<void(PortalAnswer)>;

    PortalConversations() = default;

    /// Drops the requests that are under way: their handlers are not called. Waits for a handler that runs.
    ~PortalConversations();

    PortalConversations(const PortalConversations&) = delete;
    PortalConversations& operator=(const PortalConversations&) = delete;

    /// Asks on a thread of its own, and calls `handler` there exactly once, after this has returned. False when the
    /// system refuses a thread: then nothing was asked, and `handler` is not called.
    [[nodiscard]] bool begin(PortalRequest request, Handler handler);

    /// True while a request has no answer yet.
    bool areUnderWay() const;

private:
    struct Conversation {
        std::atomic<bool> answered = false;
        std::atomic<bool> finished = false;
        std::jthread thread;
    };

    mutable std::mutex mutex_;
    std::list<std::unique_ptr<Conversation>> conversations_;
};

}  // namespace tarvex::platform
