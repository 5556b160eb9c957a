#include "platform/iio/light_sensor_reporter.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/shared/deadline_grid.h"
#include "platform/shared/library_thread.h"
#include "tarvex/platform/run_loop.h"

namespace tarvex::platform {

/// The latest reading on its way from the sensor's thread to the run loop's.
class LightSensorReporter::Mailbox : public std::enable_shared_from_this<Mailbox> {
public:
    Mailbox(RunLoop& runLoop, Report report) : runLoop_(&runLoop), report_(std::move(report)) {}

    /// Afterwards neither the run loop nor the report is used. Waits for a report that another thread has begun.
    void close() {
        std::unique_lock lock(mutex_);
        runLoop_ = nullptr;
        latest_.reset();
        closed_.notify_all();
        lock.unlock();
        const std::lock_guard noReport(reporting_);
    }

    /// True once the mailbox is closed, false when the deadline came.
    bool waitUntil(Instant deadline) {
        std::unique_lock lock(mutex_);
        return closed_.wait_until(lock, deadline, [this] { return runLoop_ == nullptr; });
    }

    void put(const LightReading& reading) {
        const std::lock_guard lock(mutex_);
        if (runLoop_ == nullptr) return;
        const bool isQueued = latest_.has_value();
        latest_ = reading;
        if (!isQueued) runLoop_->perform([self = shared_from_this()] { self->deliver(); });
    }

private:
    void deliver() {
        const std::lock_guard report(reporting_);
        std::unique_lock lock(mutex_);
        const auto reading = std::exchange(latest_, std::nullopt);
        lock.unlock();
        if (reading) report_(*reading);
    }

    std::recursive_mutex reporting_;  // a report may close the mailbox, and run the loop
    std::mutex mutex_;
    std::condition_variable closed_;
    RunLoop* runLoop_;  // none once the mailbox is closed
    std::optional<LightReading> latest_;
    Report report_;
};

LightSensorReporter::LightSensorReporter(Read read, Interval interval, RunLoop& runLoop, Report report)
    : mailbox_(std::make_shared<Mailbox>(runLoop, std::move(report))) {
    auto look = [mailbox = mailbox_, read = std::move(read), interval = std::move(interval)] {
        beginLibraryThread("tarvex-light");
        Instant deadline = monotonicNow();
        do {
            if (const auto reading = read()) mailbox->put(*reading);
            deadline = nextDeadline(deadline, interval(), monotonicNow()).value_or(endOfTime);
        } while (!mailbox->waitUntil(deadline));
    };
    try {
        std::thread thread(std::move(look));
        thread.detach();
    } catch (const std::system_error&) {
        // The system refuses a thread: as without a sensor, nothing is ever reported.
        mailbox_->close();
    }
}

LightSensorReporter::~LightSensorReporter() {
    mailbox_->close();
}

}  // namespace tarvex::platform
