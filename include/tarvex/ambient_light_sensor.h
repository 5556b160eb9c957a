#pragma once

#include <cstdint>

#include "tarvex/export.h"
#include "tarvex/platform/hid_event_system.h"

namespace tarvex {

/// The ambient light sensor and the last reading that it reported; the process holds both once. Thread-safe.
///
/// Events arrive on the main thread; the five numbers of a reading always come from one of them.
class TARVEX_EXPORT TXAmbientLightSensor {
public:
    TXAmbientLightSensor() = delete;

    /// Creates a client matched to the ambient light sensor, and sets the report interval of the first one found to
    /// `milliseconds`. Intervals that do not fit a 32-bit count of microseconds (2147.483647 s and more) are limited
    /// to it. The last reading stays. The client that this one replaces is released unless it runs: then it reports
    /// until `stop_iokit`.
    static void init_iokit(std::int32_t milliseconds);

    /// Starts the delivery of events on the main run loop; does nothing before `init_iokit`.
    static void start_iokit();

    /// Ends the delivery of events, also those of clients that were replaced while they ran, which are released. An
    /// event that another thread is handling has ended when this returns, and none begins later. The last reading
    /// stays.
    static void stop_iokit();

    /// Copies the last reading: lux, and the four raw channels (red, green, blue and clear where the sensor has
    /// colours); all 0 before the first event.
    static void get_lux(std::int32_t* lux, float* ch0, float* ch1, float* ch2, float* ch3);
};

}  // namespace tarvex

/// Takes over the reading of an ambient light event; ignores events of other types. Uses `event` only. Thread-safe.
extern "C" TARVEX_EXPORT void handle_event(void* target, void* refcon, tarvex::platform::HidServiceClient* sender,
                                           tarvex::platform::HidEvent* event);
