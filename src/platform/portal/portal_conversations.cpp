#include "platform/portal/portal_conversations.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/shared/library_thread.h"

namespace tarvex::platform {

PortalConversations::~PortalConversations() {
    for (const auto& conversation : conversations_) {
        conversation->thread.request_stop();
        // A handler may destroy what it answers to.
        if (conversation->thread.get_id() == std::this_thread::get_id()) conversation->thread.detach();
    }
}

bool PortalConversations::begin(PortalRequest request, Handler handler) {
    const std::scoped_lock lock(mutex_);
    std::erase_if(conversations_, [](const auto& conversation) { return conversation->finished.load(); });
    auto begun = std::make_unique<Conversation>();
    try {
        begun->thread = std::jthread([this, &conversation = *begun, request = std::move(request),
                                      handler = std::move(handler)](const std::stop_token& stop) {
            beginLibraryThread("tarvex-portal");
            const PortalAnswer answer = request.ask(stop);
            {
                const std::scoped_lock returned(mutex_);  // the request has returned
            }
            if (stop.stop_requested()) return;
            conversation.answered = true;
            handler(answer);
            if (!stop.stop_requested()) conversation.finished = true;
        });
    } catch (const std::system_error&) {
        return false;
    }
    conversations_.push_back(std::move(begun));
    return true;
}

bool PortalConversations::areUnderWay() const {
    const std::scoped_lock lock(mutex_);
    return std::ranges::any_of(conversations_, [](const auto& conversation) { return !conversation->answered.load(); });
}

}  // namespace tarvex::platform
