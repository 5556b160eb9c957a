#pragma once

#include <memory>

#include "tarvex/export.h"
#include "tarvex/information_view.h"
#include "tarvex/platform/platform.h"
#include "tarvex/view.h"

// GTK's own declaration, without its headers.
// NOLINTNEXTLINE(modernize-use-using,bugprone-*)
typedef struct _GtkWidget GtkWidget;

/// The consent screen in GTK 4, views of GTK hosts, and the detection that a host went to the background.
///
/// Everything here is thread-bound: called on the thread that runs GTK. Nothing here runs a loop or presents a window.
namespace tarvex::gtk {

/// Makes GTK the toolkit of `platform`, and watches the process's GTK windows for it.
///
/// `applicationDidEnterBackground` is posted once each time every window was unmapped or minimised, or none was active
/// for 5 seconds although one was before; of these, the time in which the system asks the user about the camera or a
/// link does not count, nor the time without any keyboard. It comes before the loop of a host ends whose user closes
/// the last window, or whose GApplication ends. A host without GTK windows gets none. Does not initialise GTK: it may
/// come before `gtk_init`. With another major version of GTK in the process, says so on standard error and leaves the
/// platform as it is. Calling it again for the same platform has no effect.
TARVEX_EXPORT void addTo(platform::Platform& platform);

/// A view on top of which a reader may put its own: they lie over what `overlayHost`, a GtkOverlay, shows, and let
/// pointer and keyboard through. Any other widget, or none, keeps its children unseen. The widget is held weakly.
[[nodiscard]] TARVEX_EXPORT std::shared_ptr<View> wrap(GtkWidget* overlayHost);

/// A new widget that shows the consent screen, with a floating reference as GTK's own constructors return it. It keeps
/// what it needs of its argument. Null where GTK cannot be used (no display, another major version in the process);
/// standard error then says why.
[[nodiscard]] TARVEX_EXPORT GtkWidget* widget(const ViewController& controller);
[[nodiscard]] TARVEX_EXPORT GtkWidget* widget(const InformationView& view);

}  // namespace tarvex::gtk
