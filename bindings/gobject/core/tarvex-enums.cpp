#include "tarvex-error.h"
#include "tarvex-reader.h"

GQuark tarvex_error_quark() {
    return g_quark_from_static_string("tarvex-error-quark");
}

GQuark tarvex_host_error_quark() {
    return g_quark_from_static_string("tarvex-host-error-quark");
}

G_DEFINE_ENUM_TYPE(TarvexReader, tarvex_reader, G_DEFINE_ENUM_VALUE(TARVEX_READER_DISTANCE, "distance"),
                   G_DEFINE_ENUM_VALUE(TARVEX_READER_AMBIENT_LIGHT, "ambient-light"))

G_DEFINE_ENUM_TYPE(TarvexError, tarvex_error, G_DEFINE_ENUM_VALUE(TARVEX_ERROR_USAGE_DESCRIPTION, "usage-description"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_HTTP_ERROR, "http-error"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_NO_CONSENT_TO_TRACK, "no-consent-to-track"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_NO_VIEW_TO_ATTACH_FOR_DISTANCE_TRACKING,
                                       "no-view-to-attach-for-distance-tracking"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_DISTANCE_TRACKING_IS_NOT_AVAILABLE,
                                       "distance-tracking-is-not-available"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_LIGHT_TRACKING_IS_NOT_AVAILABLE, "light-tracking-is-not-available"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_NO_REFRESH_RATE, "no-refresh-rate"),
                   G_DEFINE_ENUM_VALUE(TARVEX_ERROR_CANNOT_LOAD_TRACKING_DATA, "cannot-load-tracking-data"))

G_DEFINE_ENUM_TYPE(TarvexHostError, tarvex_host_error,
                   G_DEFINE_ENUM_VALUE(TARVEX_HOST_ERROR_NO_APPLICATION_ID, "no-application-id"),
                   G_DEFINE_ENUM_VALUE(TARVEX_HOST_ERROR_OTHER_APPLICATION, "other-application"),
                   G_DEFINE_ENUM_VALUE(TARVEX_HOST_ERROR_WRONG_THREAD, "wrong-thread"),
                   G_DEFINE_ENUM_VALUE(TARVEX_HOST_ERROR_LIBRARY_IN_USE, "library-in-use"))
