#pragma once

#include <memory>

#include "platform/portal/portal_conversations.h"
#include "tarvex/platform/application.h"
#include "tarvex/platform/run_loop.h"

namespace tarvex::platform {

/// Opens URLs through the desktop portal; where there is none, or it replies with an error, the fallback opens them.
class PortalApplication final : public Application {
public:
    /// `main` must outlive this: the fallback is called on it.
    PortalApplication(RunLoop& main, std::unique_ptr<Application> fallback);

    void openUrl(const Url& url) override;
    bool isOpeningUrl() const override;

private:
    RunLoop& main_;
    std::shared_ptr<Application> fallback_;
    PortalConversations conversations_;
};

}  // namespace tarvex::platform
