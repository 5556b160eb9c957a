#pragma once

#include "tarvex-glib-export.h"

G_BEGIN_DECLS

#define TARVEX_TYPE_VIEW (tarvex_view_get_type())

/**
 * TarvexView:
 *
 * What distance tracking attaches its own view to. A host with GTK windows takes the one of `TarvexGtk.wrap`.
 *
 * Used on the main thread.
 */
TARVEX_GLIB_EXPORT G_DECLARE_FINAL_TYPE(TarvexView, tarvex_view, TARVEX, VIEW, GObject)

/**
 * tarvex_view_new:
 *
 * A view for hosts without a screen: it shows nothing.
 *
 * Returns: (transfer full): a new view
 */
TARVEX_GLIB_EXPORT TarvexView* tarvex_view_new(void);

G_END_DECLS
