#pragma once

#include <gtk/gtk.h>
#include <tarvex-glib.h>

G_BEGIN_DECLS

/**
 * tarvex_gtk_add_to:
 * @client: the client
 *
 * Lets the client share, and delete what was shared, each time the host's windows go to the background. Called once, on
 * the main thread, best before the first use; a further call does nothing.
 */
TARVEX_GLIB_EXPORT void tarvex_gtk_add_to(TarvexClient* client);

/**
 * tarvex_gtk_wrap:
 * @overlay: the widget that distance tracking attaches its view to; it is held weakly
 *
 * A view for [method@Tarvex.Client.start].
 *
 * Returns: (transfer full): a new view
 */
TARVEX_GLIB_EXPORT TarvexView* tarvex_gtk_wrap(GtkOverlay* overlay);

G_END_DECLS
