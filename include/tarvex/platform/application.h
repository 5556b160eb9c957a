#pragma once

#include "tarvex/export.h"
#include "tarvex/url.h"

namespace tarvex::platform {

/// The host application as the desktop sees it. Thread-safe.
class TARVEX_EXPORT Application {
public:
    virtual ~Application() = default;

    /// Asks the desktop to open `url`; nothing is reported, also when no application opens it.
    virtual void openUrl(const Url& url) = 0;

    /// Whether the desktop has yet to say what became of a URL: it may show a dialog of its own.
    virtual bool isOpeningUrl() const { return false; }
};

}  // namespace tarvex::platform
