#pragma once

#include <tarvex-glib.h>

G_BEGIN_DECLS

#define TARVEX_TESTING_TYPE_LIGHT_SENSOR (tarvex_testing_light_sensor_get_type())

/**
 * TarvexTestingLightSensor:
 *
 * A light sensor whose readings a test reports. Thread-safe.
 */
TARVEX_GLIB_EXPORT G_DECLARE_FINAL_TYPE(TarvexTestingLightSensor, tarvex_testing_light_sensor, TARVEX_TESTING,
                                        LIGHT_SENSOR, GObject)

/**
 * tarvex_testing_light_sensor_new:
 * @client: the client, which is not in use yet
 *
 * Takes the place of the machine's sensors. Where the client is in use already, they stay, and a critical message says
 * so.
 *
 * Returns: (transfer full): a new sensor, without a reading
 */
TARVEX_GLIB_EXPORT TarvexTestingLightSensor* tarvex_testing_light_sensor_new(TarvexClient* client);

/**
 * tarvex_testing_light_sensor_report:
 * @self: the sensor
 * @lux: the illuminance
 * @channel0: the first raw channel
 * @channel1: the second raw channel
 * @channel2: the third raw channel
 * @channel3: the fourth raw channel
 *
 * Reports a reading, if the sensor is being read: each later sample repeats it.
 */
TARVEX_GLIB_EXPORT void tarvex_testing_light_sensor_report(TarvexTestingLightSensor* self, gint lux, gdouble channel0,
                                                           gdouble channel1, gdouble channel2, gdouble channel3);

#define TARVEX_TESTING_TYPE_BACKEND (tarvex_testing_backend_get_type())

/**
 * TarvexTestingBackend:
 *
 * A backend within the process: it records what is shared, and answers. Thread-safe.
 */
TARVEX_GLIB_EXPORT G_DECLARE_FINAL_TYPE(TarvexTestingBackend, tarvex_testing_backend, TARVEX_TESTING, BACKEND, GObject)

/**
 * TarvexTestingBackend:status:
 *
 * The HTTP status of the answers; 200 at first.
 */
/**
 * TarvexTestingBackend:holding:
 *
 * Whether documents are received and not answered. When it ends, those that wait are.
 */

/**
 * tarvex_testing_backend_new:
 * @client: the client, which is not in use yet
 *
 * Takes the place of the network. Where the client is in use already, that stays, and a critical message says so.
 *
 * Returns: (transfer full): a new backend
 */
TARVEX_GLIB_EXPORT TarvexTestingBackend* tarvex_testing_backend_new(TarvexClient* client);

/**
 * tarvex_testing_backend_get_documents:
 * @self: the backend
 *
 * The documents so far, as they were sent: JSON.
 *
 * Returns: (transfer full) (array zero-terminated=1): a new array
 */
TARVEX_GLIB_EXPORT char** tarvex_testing_backend_get_documents(TarvexTestingBackend* self);

/**
 * tarvex_testing_use_loopback:
 * @client: the client, which is not in use yet
 * @port: a port on 127.0.0.1
 * @certificate_pem: the only certificates that are trusted; they name the research backend's host
 *
 * Sends what is shared to a test's own server, over HTTPS, past any proxy. Where the client is in use already, nothing
 * changes, and a critical message says so.
 */
TARVEX_GLIB_EXPORT void tarvex_testing_use_loopback(TarvexClient* client, guint16 port, const char* certificate_pem);

G_END_DECLS
