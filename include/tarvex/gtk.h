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
/// Every function is thread-bound: the main thread is the one that runs GTK. None runs a loop or presents a window.
namespace tarvex::gtk {

/// Adds background detection for the process's GTK windows to `platform`.
///
/// `applicationDidEnterBackground` is posted once each time every window has been unmapped or minimised, or no window
/// has been active for 5 seconds although one was before. Time in which the system shows its dialog about the camera or
/// a link, and time without any keyboard, does not count towards these seconds. When the user closes the last window or
/// the host's GApplication ends, the notification precedes the end of the host's loop. A host without GTK windows
/// receives no notification. Does not initialise GTK and may be called before `gtk_init`. With another major version
/// of GTK in the process, logs one warning and leaves the platform as it is. A second call for the same
/// platform has no effect.
TARVEX_EXPORT void addTo(platform::Platform& platform);

/// A view of `overlayHost`, which is held weakly. Children that `wrap` has made as well lie over what `overlayHost`, a
/// GtkOverlay, shows; other children, such as a face tracker's view, show nothing and take no input. With another
/// widget or null, the view keeps its children and shows none.
[[nodiscard]] TARVEX_EXPORT std::shared_ptr<View> wrap(GtkWidget* overlayHost);

/// A new widget that shows the consent screen, with a floating reference as GTK's own constructors return it. The
/// argument need not outlive it. Null where GTK cannot be used (no display, or another major version in the process);
/// one warning names the reason.
[[nodiscard]] TARVEX_EXPORT GtkWidget* widget(const ViewController& controller);
[[nodiscard]] TARVEX_EXPORT GtkWidget* widget(const InformationView& view);

}  // namespace tarvex::gtk
