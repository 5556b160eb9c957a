#pragma once

#include <gtk/gtk.h>
#include <tarvex-glib.h>

G_BEGIN_DECLS

#define TARVEX_GTK_TYPE_CONSENT_SCREEN (tarvex_gtk_consent_screen_get_type())

/**
 * TarvexGtkConsentScreen:
 *
 * The consent screen as a widget. The host takes it away itself, for example when its request was decided.
 *
 * It asks for a width of 400 points and works from 360. Its texts are keys of the host's default gettext domain.
 */
TARVEX_GLIB_EXPORT G_DECLARE_FINAL_TYPE(TarvexGtkConsentScreen, tarvex_gtk_consent_screen, TARVEX_GTK, CONSENT_SCREEN,
                                        GtkWidget)

/**
 * TarvexGtkConsentScreen:request: (getter get_request) (setter set_request)
 *
 * The request that is shown; nothing is, while there is none, or where the client cannot be used: then a critical
 * message has the [error@Tarvex.HostError].
 */

/**
 * tarvex_gtk_consent_screen_new:
 * @request: (nullable): see [property@ConsentScreen:request]
 *
 * Uses the client: what is set before its first use has to be set by now.
 *
 * Returns: (transfer floating): a new screen
 */
TARVEX_GLIB_EXPORT GtkWidget* tarvex_gtk_consent_screen_new(TarvexConsentRequest* request);

/**
 * tarvex_gtk_consent_screen_get_request: (get-property request)
 * @self: the screen
 *
 * See [property@ConsentScreen:request].
 *
 * Returns: (transfer none) (nullable): the request that is shown
 */
TARVEX_GLIB_EXPORT TarvexConsentRequest* tarvex_gtk_consent_screen_get_request(TarvexGtkConsentScreen* self);

/**
 * tarvex_gtk_consent_screen_set_request: (set-property request)
 * @self: the screen
 * @request: (nullable): see [property@ConsentScreen:request]
 *
 * Shows another request.
 */
TARVEX_GLIB_EXPORT void tarvex_gtk_consent_screen_set_request(TarvexGtkConsentScreen* self,
                                                              TarvexConsentRequest* request);

G_END_DECLS
