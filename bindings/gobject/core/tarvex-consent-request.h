#pragma once

#include "tarvex-reader.h"

G_BEGIN_DECLS

#define TARVEX_TYPE_CONSENT_REQUEST (tarvex_consent_request_get_type())

/**
 * TarvexConsentRequest:
 *
 * The question for the user's consent, which a host shows as `TarvexGtk.ConsentScreen` or in a way of its own.
 *
 * Made with [ctor@ConsentRequest.new], which alone takes readers, and used on the main thread. To make one uses nothing
 * of the library yet. A request that has been consented to stays alive until the system has answered for the camera.
 */
TARVEX_GLIB_EXPORT G_DECLARE_FINAL_TYPE(TarvexConsentRequest, tarvex_consent_request, TARVEX, CONSENT_REQUEST, GObject)

/**
 * TarvexConsentRequest:application-name:
 *
 * The host's name on the screen; without one [property@Client:application-name], else "Unknown".
 */
/**
 * TarvexConsentRequest:description:
 *
 * Why the host asks, in its own words.
 */
/**
 * TarvexConsentRequest:link:
 *
 * The page of "Learn more...": an absolute URL.
 */

/**
 * TarvexConsentRequest::decided:
 * @self: the request
 * @consented: whether the user has consented; the consent is stored by then
 *
 * The user's decision, on the default main context. Each press of a button is answered once.
 */

/**
 * tarvex_consent_request_new:
 * @application_name: (nullable): see [property@ConsentRequest:application-name]
 * @description: (nullable): see [property@ConsentRequest:description]
 * @readers: (array length=n_readers): what the host wants to sample, in the order of the screen; the caller keeps the
 *   array
 * @n_readers: their number
 * @link: (nullable): see [property@ConsentRequest:link]
 *
 * Asks nobody yet. A reader or a link that is none is left out, with a critical message.
 *
 * Returns: (transfer full): a new request
 */
TARVEX_GLIB_EXPORT TarvexConsentRequest* tarvex_consent_request_new(const char* application_name,
                                                                    const char* description,
                                                                    const TarvexReader* readers, gsize n_readers,
                                                                    const char* link);

/**
 * tarvex_consent_request_get_readers:
 * @self: the request
 * @n_readers: (out): their number
 *
 * What the host wants to sample.
 *
 * Returns: (transfer none) (array length=n_readers): the readers, as long as the request lives
 */
TARVEX_GLIB_EXPORT const TarvexReader* tarvex_consent_request_get_readers(TarvexConsentRequest* self, gsize* n_readers);

/**
 * tarvex_consent_request_cancel:
 * @self: the request
 * @error: return location for a [error@HostError]
 *
 * The user presses "Cancel": [signal@ConsentRequest::decided] follows. On the main thread only.
 *
 * Returns: %TRUE, or %FALSE with @error set and no signal to come
 */
TARVEX_GLIB_EXPORT gboolean tarvex_consent_request_cancel(TarvexConsentRequest* self, GError** error);

/**
 * tarvex_consent_request_learn_more:
 * @self: the request, which has a [property@ConsentRequest:link]
 * @error: return location for a [error@HostError]
 *
 * The user presses "Learn more...": the desktop is asked to open the page. On the main thread only.
 *
 * Returns: %TRUE, or %FALSE with @error set
 */
TARVEX_GLIB_EXPORT gboolean tarvex_consent_request_learn_more(TarvexConsentRequest* self, GError** error);

/**
 * tarvex_consent_request_consent:
 * @self: the request
 * @error: return location for a [error@HostError]
 *
 * The user presses "I consent": the system is asked for the camera, which may show a dialog, and
 * [signal@ConsentRequest::decided] follows. On the main thread only.
 *
 * Returns: %TRUE, or %FALSE with @error set and no signal to come
 */
TARVEX_GLIB_EXPORT gboolean tarvex_consent_request_consent(TarvexConsentRequest* self, GError** error);

G_END_DECLS
