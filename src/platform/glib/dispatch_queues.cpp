#include "platform/glib/dispatch_queues.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/shared/deadline_grid.h"
#include "platform/shared/library_thread.h"
#include "tarvex/platform/diagnostics.h"
#include "tarvex/platform/run_loop.h"

namespace tarvex::platform {

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point deadlineAfter(std::chrono::nanoseconds delay) {
    return Clock::time_point(saturatingSum(Clock::now().time_since_epoch(), delay));
}

}  // namespace

class LinuxDispatchQueues::DelayedBlocks {
public:
    void add(Clock::time_point deadline, std::function<void()> block) {
        const std::lock_guard lock(mutex_);
        if (!block) return;
        blocks_.emplace(deadline, std::move(block));
        changed_.notify_one();
    }

    void runUntil(const std::stop_token& stop) {
        while (const std::function<void()> block = waitForNext(stop))
            block();
    }

private:
    /// The block whose deadline has come; empty once `stop` is requested.
    std::function<void()> waitForNext(const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        while (!stop.stop_requested()) {
            if (blocks_.empty()) {
                changed_.wait(lock, stop, [this] { return !blocks_.empty(); });
                continue;
            }
            const Clock::time_point deadline = blocks_.begin()->first;
            if (deadline <= Clock::now()) return std::move(blocks_.extract(blocks_.begin()).mapped());
            changed_.wait_until(lock, stop, deadline,
                                [&] { return blocks_.empty() || blocks_.begin()->first < deadline; });
        }
        return nullptr;
    }

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::multimap<Clock::time_point, std::function<void()>> blocks_;  // equal deadlines keep the order of the calls
};

LinuxDispatchQueues::LinuxDispatchQueues(RunLoop& main) : main_(main), delayed_(std::make_unique<DelayedBlocks>()) {}

LinuxDispatchQueues::~LinuxDispatchQueues() = default;

void LinuxDispatchQueues::mainAsync(std::function<void()> block) {
    main_.perform(std::move(block));
}

void LinuxDispatchQueues::backgroundAfter(std::chrono::nanoseconds delay, std::function<void()> block) {
    delayed_->add(deadlineAfter(delay), std::move(block));
    try {
        std::call_once(started_, [this] {
            thread_ = std::jthread([this](const std::stop_token& stop) {
                beginLibraryThread("tarvex-delayed");
                delayed_->runUntil(stop);
            });
        });
    } catch (const std::system_error&) {
        // The system refuses a thread: the block waits for the next call, which tries again.
        return;
    }
}

void warnUnlessMainLoopRuns(DispatchQueues& queues, std::chrono::nanoseconds patience) {
    const auto runs = std::make_shared<std::atomic<bool>>(false);
    queues.mainAsync([runs] { *runs = true; });
    queues.backgroundAfter(patience, [runs] {
        if (!*runs)
            logWarning(
                "nothing is sampled: the main loop has not run since tracking was started; a host runs "
                "RunLoop::main() or GLib's main loop, which GTK has and Qt has unless QT_NO_GLIB is set");
    });
}

}  // namespace tarvex::platform
