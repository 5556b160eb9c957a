#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "platform/iio/light_sensor_layout.h"

namespace tarvex::platform {

class RunLoop;

/// Reads one sensor at its interval, on a thread of its own ("tarvex-light"), and reports the readings on a run loop:
/// the first at once, then one per interval. A look without a reading is not reported; the next interval looks again.
/// Reentrant.
///
/// The thread is detached: a read that hangs in its driver delays neither the run loop nor another sensor. Until the
/// read returns, the thread and its objects stay behind; it reports nothing any more and uses only its own state and
/// `read`.
///
/// Deadlines are absolute; one that passes during a read is skipped. A busy run loop gets the latest reading
/// afterwards, not a backlog. Without the reporter nothing wakes up.
class LightSensorReporter {
public:
    using Read = std::function<std::optional<LightReading>()>;
    using Interval = std::function<std::chrono::microseconds()>;
    using Report = std::function<void(const LightReading&)>;

    /// `report` runs on the run loop's thread and may destroy the reporter. `read` and `interval` are called on the
    /// reporter's thread, `interval`, which is positive, before every wait. When the system refuses a thread, nothing
    /// is ever reported.
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
