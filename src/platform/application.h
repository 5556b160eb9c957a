#pragma once

#include "tarvex/export.h"
#include "tarvex/url.h"

namespace tarvex::platform {

class TARVEX_EXPORT Application {
public:
    virtual ~Application() = default;

    /// Asks the desktop to open `url`; nothing is reported, also when no application opens it.
    virtual void openUrl(const Url& url) = 0;
};

}  // namespace tarvex::platform
