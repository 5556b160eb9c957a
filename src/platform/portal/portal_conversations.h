#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/portal/portal_request.h"

namespace tarvex::platform {

/// The questions to the portal that are under way: one thread for each, since each waits for a person. Thread-safe.
class PortalConversations {
public:
    using Handler = std::function<void(PortalAnswer)>;

    PortalConversations() = default;

    /// Drops the questions that are under way: their handlers are not called. Waits for a handler that runs.
    ~PortalConversations();

    PortalConversations(const PortalConversations&) = delete;
    PortalConversations& operator=(const PortalConversations&) = delete;

    /// Asks on a thread of its own, and calls `handler` there exactly once, after this has returned. False when the
    /// system has no thread to give: then nothing was asked, and `handler` is not called.
    [[nodiscard]] bool begin(PortalRequest request, Handler handler);

    /// Whether some question has no answer yet.
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
