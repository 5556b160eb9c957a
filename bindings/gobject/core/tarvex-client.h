#pragma once

#include <gio/gio.h>

#include "tarvex-reader.h"
#include "tarvex-view.h"

G_BEGIN_DECLS

#define TARVEX_TYPE_CLIENT (tarvex_client_get_type())

/**
 * TarvexClient:
 *
 * The one object through which a host drives the library.
 *
 * The thread that first asks for the client, or makes a request, is the main thread, whose main loop runs. On it belong
 * sharing and the consent request; everything else may be called on any thread. Signals are emitted on the default main
 * context.
 *
 * The first call that needs the library uses it: from then on no property can be set. Consent, identifier and samples
 * are filed under [property@Client:application-id], else under the identifier of the process's default #GApplication;
 * a property list that the host has beside it (see [property@Client:bundle-directory]) counts before both. A host
 * without any of them gets %TARVEX_HOST_ERROR_NO_APPLICATION_ID, and nothing is stored: under the name of its
 * interpreter it would share all three with every other host of that interpreter. Functions that report no error
 * log it as a critical message and answer %FALSE or 0.
 */
TARVEX_GLIB_EXPORT G_DECLARE_FINAL_TYPE(TarvexClient, tarvex_client, TARVEX, CLIENT, GObject)

/**
 * TarvexClient:application-id:
 *
 * The host's name in the upload, and the one of its data directory: "org.example.LightStudy". Set before the first use.
 */
/**
 * TarvexClient:application-name:
 *
 * The host's name on the consent screen, where the request does not give one. Set before the first use.
 */
/**
 * TarvexClient:camera-usage-description:
 *
 * What the host needs the camera for. Its presence lets the distance reader start. Set before the first use.
 */
/**
 * TarvexClient:data-directory:
 *
 * The directory of the samples and the consent, for tests and kiosks; by default the user's data directory for
 * [property@Client:application-id]. Set before the first use.
 */
/**
 * TarvexClient:bundle-directory:
 *
 * The directory of the host's property list `Info.plist`. What stands there wins over these properties. Set before the
 * first use.
 */
/**
 * TarvexClient:sensor-root:
 *
 * The tree of the light sensors, for tests; by default the kernel's. Set before the first use.
 */
/**
 * TarvexClient:count: (getter get_count)
 *
 * The number of stored samples, including those whose commit has failed so far; 0 when counting fails.
 *
 * Notified on the main context after each sample that this process has stored and after each deletion; several at once
 * while the main loop was busy. Nothing polls: what another process stores is seen when the property is read.
 */
/**
 * TarvexClient:distance-available: (getter get_distance_available)
 *
 * Whether distances can be measured at all: there is a camera, and the networks that find a face.
 *
 * Notified on the main context when it has changed since it was read: a second after a camera's device came or went,
 * and after a start of the distance reader or a decision about a consent, which may see a camera that is no device
 * here.
 */

/**
 * tarvex_client_get_default:
 *
 * The client of this process. Uses nothing of the library yet. Thread-safe; see [class@Client] for what the first call
 * decides.
 *
 * Returns: (transfer none): the client, which lives as long as the process
 */
TARVEX_GLIB_EXPORT TarvexClient* tarvex_client_get_default(void);

/**
 * tarvex_client_start:
 * @self: the client
 * @reader: what is sampled
 * @interval: whole seconds between two samples; zero and below sample once a second
 * @view: (nullable): where distance tracking attaches its view, kept until the reader is stopped; the ambient light
 *   needs none
 * @error: return location for a [error@Error] or a [error@HostError]
 *
 * Starts sampling, unless the reader runs already: then it keeps its interval. The first sample comes one interval
 * later, on the calling thread's thread-default main context. Thread-safe.
 *
 * Returns: %TRUE when the reader runs, %FALSE with @error set otherwise
 */
TARVEX_GLIB_EXPORT gboolean tarvex_client_start(TarvexClient* self, TarvexReader reader, gint64 interval,
                                                TarvexView* view, GError** error);

/**
 * tarvex_client_stop:
 * @self: the client
 * @reader: what is sampled no longer
 *
 * Stops sampling; does nothing where the reader does not run. Thread-safe.
 */
TARVEX_GLIB_EXPORT void tarvex_client_stop(TarvexClient* self, TarvexReader reader);

/**
 * tarvex_client_stop_all:
 * @self: the client
 *
 * Stops all readers. Thread-safe.
 */
TARVEX_GLIB_EXPORT void tarvex_client_stop_all(TarvexClient* self);

/**
 * tarvex_client_in_progress:
 * @self: the client
 * @reader: the reader that is asked for
 *
 * Whether something is sampled, by this process. Thread-safe.
 *
 * Returns: %TRUE while the reader is being sampled
 */
TARVEX_GLIB_EXPORT gboolean tarvex_client_in_progress(TarvexClient* self, TarvexReader reader);

/**
 * tarvex_client_has_consented:
 * @self: the client
 * @reader: the reader that is asked for
 *
 * Whether the user has consented; read afresh each time. Thread-safe.
 *
 * Returns: %TRUE when the user has consented to this reader
 */
TARVEX_GLIB_EXPORT gboolean tarvex_client_has_consented(TarvexClient* self, TarvexReader reader);

/**
 * tarvex_client_share_async:
 * @self: the client
 * @delete_if_successful: whether a success removes every sample that is stored at that moment
 * @callback: (scope async) (closure user_data): called on the calling thread's thread-default main context
 * @user_data: data for @callback
 *
 * Posts every stored sample as one document. On the main thread only.
 *
 * The document is assembled before this returns. There is no cancellable: of an upload that is given up nobody knows
 * whether the document has arrived. When the process ends first, @callback is not called, and what was not sent stays
 * stored.
 */
TARVEX_GLIB_EXPORT void tarvex_client_share_async(TarvexClient* self, gboolean delete_if_successful,
                                                  GAsyncReadyCallback callback, gpointer user_data);

/**
 * tarvex_client_share_finish:
 * @self: the client
 * @result: what the callback was given
 * @error: return location for a [error@Error] or a [error@HostError]
 *
 * The outcome of [method@Client.share_async].
 *
 * Returns: %TRUE when the document was accepted, %FALSE with @error set otherwise
 */
TARVEX_GLIB_EXPORT gboolean tarvex_client_share_finish(TarvexClient* self, GAsyncResult* result, GError** error);

/**
 * tarvex_client_delete_all:
 * @self: the client
 *
 * Deletes every stored sample, for good. Thread-safe.
 */
TARVEX_GLIB_EXPORT void tarvex_client_delete_all(TarvexClient* self);

/**
 * tarvex_client_get_count: (get-property count)
 * @self: the client
 *
 * See [property@Client:count]. Thread-safe.
 *
 * Returns: the number of stored samples
 */
TARVEX_GLIB_EXPORT gint64 tarvex_client_get_count(TarvexClient* self);

/**
 * tarvex_client_get_distance_available: (get-property distance-available)
 * @self: the client
 *
 * See [property@Client:distance-available]. Thread-safe.
 *
 * Returns: whether distances can be measured at all
 */
TARVEX_GLIB_EXPORT gboolean tarvex_client_get_distance_available(TarvexClient* self);

G_END_DECLS
