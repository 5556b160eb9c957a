#pragma once

#include "tarvex-glib-export.h"

G_BEGIN_DECLS

/**
 * TarvexError:
 * @TARVEX_ERROR_USAGE_DESCRIPTION: the host does not say what it needs the camera for:
 *   [property@Client:camera-usage-description]
 * @TARVEX_ERROR_HTTP_ERROR: the upload failed; the message has the cause
 * @TARVEX_ERROR_NO_CONSENT_TO_TRACK: the user has not consented to this reader
 * @TARVEX_ERROR_NO_VIEW_TO_ATTACH_FOR_DISTANCE_TRACKING: the distance reader was started without a [class@View]
 * @TARVEX_ERROR_DISTANCE_TRACKING_IS_NOT_AVAILABLE: no service of this system can track a face
 * @TARVEX_ERROR_LIGHT_TRACKING_IS_NOT_AVAILABLE: raised by no operation today
 * @TARVEX_ERROR_NO_REFRESH_RATE: the reader has no interval; this interface cannot leave it out
 * @TARVEX_ERROR_CANNOT_LOAD_TRACKING_DATA: the stored samples cannot be read, or there is no durable user identifier
 *
 * What fails in the library itself. The messages are the library's own and meant for the user; the numbers are fixed.
 */
typedef enum {
    TARVEX_ERROR_USAGE_DESCRIPTION = 0,
    TARVEX_ERROR_HTTP_ERROR = 1,
    TARVEX_ERROR_NO_CONSENT_TO_TRACK = 2,
    TARVEX_ERROR_NO_VIEW_TO_ATTACH_FOR_DISTANCE_TRACKING = 3,
    TARVEX_ERROR_DISTANCE_TRACKING_IS_NOT_AVAILABLE = 4,
    TARVEX_ERROR_LIGHT_TRACKING_IS_NOT_AVAILABLE = 5,
    TARVEX_ERROR_NO_REFRESH_RATE = 6,
    TARVEX_ERROR_CANNOT_LOAD_TRACKING_DATA = 7
} TarvexError;

/**
 * TARVEX_ERROR:
 *
 * The domain of [error@Error].
 */
#define TARVEX_ERROR (tarvex_error_quark())

/**
 * tarvex_error_quark:
 *
 * The domain of [error@Error].
 *
 * Returns: its number
 */
TARVEX_GLIB_EXPORT GQuark tarvex_error_quark(void);

#define TARVEX_TYPE_ERROR (tarvex_error_get_type())
TARVEX_GLIB_EXPORT GType tarvex_error_get_type(void) G_GNUC_CONST;

/**
 * TarvexHostError:
 * @TARVEX_HOST_ERROR_NO_APPLICATION_ID: the host has no name of its own, under which consent, identifier and samples
 *   would be filed: no [property@Client:application-id], no default #GApplication with an identifier and no property
 *   list with one
 * @TARVEX_HOST_ERROR_OTHER_APPLICATION: the process's default #GApplication is another one than at the first use
 * @TARVEX_HOST_ERROR_WRONG_THREAD: the operation belongs on the thread that first asked for the client
 * @TARVEX_HOST_ERROR_LIBRARY_IN_USE: something in this process used the library past this interface, before it
 *
 * What a host has to mend. Nothing was stored or sent.
 */
typedef enum {
    TARVEX_HOST_ERROR_NO_APPLICATION_ID = 0,
    TARVEX_HOST_ERROR_OTHER_APPLICATION = 1,
    TARVEX_HOST_ERROR_WRONG_THREAD = 2,
    TARVEX_HOST_ERROR_LIBRARY_IN_USE = 3
} TarvexHostError;

/**
 * TARVEX_HOST_ERROR:
 *
 * The domain of [error@HostError].
 */
#define TARVEX_HOST_ERROR (tarvex_host_error_quark())

/**
 * tarvex_host_error_quark:
 *
 * The domain of [error@HostError].
 *
 * Returns: its number
 */
TARVEX_GLIB_EXPORT GQuark tarvex_host_error_quark(void);

#define TARVEX_TYPE_HOST_ERROR (tarvex_host_error_get_type())
TARVEX_GLIB_EXPORT GType tarvex_host_error_get_type(void) G_GNUC_CONST;

G_END_DECLS
