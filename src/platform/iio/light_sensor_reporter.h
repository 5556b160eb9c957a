#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "platform/iio/light_sensor_layout.h"

namespace tarvex::platform {

class RunLoop;

/// Reads one sensor at its interval, on a thread of its own ("tarvex-light"), and reports the readings on a run loop:
/// the first at once, then one per interval. A look that yields no reading is not reported; the next interval looks
/// again.
///
/// The thread is detached, so that nobody ever waits for a sensor: a read that hangs in its driver holds up neither the
/// run loop nor another sensor. The price is a thread, with what it holds, that stays behind until the read returns.
/// It reports nothing any more and touches nothing but its own state and `read`.
///
/// Deadlines are absolute; one that passes during a read is skipped. A run loop that is held up gets the latest reading
/// afterwards, not a backlog. Nothing wakes up once the reporter is gone.
class LightSensorReporter {
public:
    using Read = std::function<std::optional<LightReading>()>;
    using Interval = std::function<std::chrono::microseconds()>;
    using Report = std::function<void(const LightReading&)>;

    /// May be made and destroyed on any thread, also by `report`, which runs on the run loop's. `read` and `interval`
    /// are called on the reporter's thread, `interval`, which is positive, before every wait. When the process is out
    /// of threads, nothing is ever reported.
    LightSensorReporter(Read read, Interval interval, RunLoop& runLoop, Report report);

    /// No report begins after this; one that another thread has begun has ended.
    ~LightSensorReporter();

    LightSensorReporter(const LightSensorReporter&) = delete;
    LightSensorReporter& operator=(const LightSensorReporter&) = delete;

private:
    class Mailbox;

    std::shared_ptr<Mailbox> mailbox_;
};

}  // namespace tarvex::platform
