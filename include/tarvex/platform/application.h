#pragma once

#include "tarvex/export.h"
#include "tarvex/url.h"

namespace tarvex::platform {

/// The host application as the desktop sees it. Thread-safe.
class TARVEX_EXPORT Application {
public:
    virtual ~Application() = default;

    /// Requests the desktop to open `url`; nothing is reported, also when no application opens it.
    virtual void openUrl(const Url& url) = 0;

    /// True until the desktop has reported the outcome of every URL: it may show a dialog of its own until then.
    virtual bool isOpeningUrl() const { return false; }
};

}  // namespace tarvex::platform
