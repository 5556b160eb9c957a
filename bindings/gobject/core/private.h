#pragma once

#include <functional>
#include <memory>

#include "tarvex-consent-request.h"
#include "tarvex-view.h"
#include "tarvex/information_view.h"
#include "tarvex/platform/platform.h"
#include "tarvex/view.h"

// What the layer's other libraries and its tests use of this one, and no host.
extern "C" {

/// See `Library::customize`.
TARVEX_GLIB_EXPORT gboolean tarvex_private_customize(const std::function<void(tarvex::platform::Platform&)>& change);

/// Notifies of a change of "distance-available" when cameras come and go below `devices`, once it has been asked for.
TARVEX_GLIB_EXPORT void tarvex_private_watch_cameras(const char* devices);

/// A view that holds `view`; transfer full.
TARVEX_GLIB_EXPORT TarvexView* tarvex_private_view(const std::shared_ptr<tarvex::View>& view);

/// Passes the screen to `show`; false, with `error` set, where the library cannot be used. Bodies of the screen hold
/// the request.
TARVEX_GLIB_EXPORT gboolean tarvex_private_show_request(TarvexConsentRequest* request,
                                                        const std::function<void(const tarvex::InformationView&)>& show,
                                                        GError** error);
}

namespace tarvex::glib {

/// What the view holds; never null.
const std::shared_ptr<View>& viewIn(TarvexView* view);

/// Notifies of a change of "distance-available". Thread-safe.
void lookAtDistanceAgain();

}  // namespace tarvex::glib
