#include "platform/iio/light_sensor_reporter.h"

#include <sys/resource.h>

#include "platform/shared/deadline_grid.h"
#include "prelude.h"
#include "tarvex/testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

constexpr auto everyMillisecond = [] { return std::chrono::microseconds(1ms); };
constexpr auto everyHour = [] { return std::chrono::microseconds(1h); };

LightReading level(std::intptr_t lux) {
    return {lux, {}};
}

class LightSensorReporterTest : public ::testing::Test {
protected:
    // The reader's thread may look once more while its reporter is being destroyed: `read` owns what it uses.
    template <typename Read, typename Interval>
    void report(Read read, Interval interval) {
        reporter = std::make_unique<LightSensorReporter>(std::move(read), interval, loop, [this](const auto& reading) {
            levels.push_back(reading.lux);
            if (onReport) onReport();
        });
    }

    testing::ManualRunLoop loop;
    std::function<void()> onReport;
    std::vector<std::intptr_t> levels;
    std::unique_ptr<LightSensorReporter> reporter;
};

TEST_F(LightSensorReporterTest, ReportsAFreshReadingOnceAnIntervalAndNothingForALookWithoutOne) {
    const auto start = monotonicNow();
    // A look that comes late leaves the next one in its place, sooner than an interval after it.
    const auto early = std::make_shared<std::atomic<bool>>(false);
    onReport = [&] {
        if ((levels.size() >= 5 && *early) || levels.size() == 2000) loop.stop();
    };
    const auto read = [early, last = Instant(), looks = 0]() mutable {
        const Instant now = monotonicNow();
        if (now - std::exchange(last, now) < 1ms) *early = true;
        return ++looks % 3 == 0 ? std::nullopt : std::optional(level(looks));
    };
    report(read, everyMillisecond);
    loop.run();
    reporter.reset();
    EXPECT_TRUE(*early);
    EXPECT_EQ(std::ranges::adjacent_find(levels, std::greater_equal()), levels.end());
    EXPECT_THAT(levels, Each(::testing::ResultOf([](auto lux) { return lux % 3; }, ::testing::Ne(0))));
    EXPECT_GE(monotonicNow() - start, (levels.back() - 1) * 1ms);
}

TEST_F(LightSensorReporterTest, ABusyRunLoopGetsTheLatestReadingAndNoBacklog) {
    const auto tenth = std::make_shared<std::binary_semaphore>(0);
    const auto read = [tenth, looks = 0]() mutable {
        if (++looks == 11) tenth->release();  // the tenth reading was handed over
        return looks > 10 ? std::nullopt : std::optional(level(looks));
    };
    report(read, everyMillisecond);
    tenth->acquire();
    EXPECT_EQ(loop.runPending(), 1U);
    EXPECT_THAT(levels, ElementsAre(10));
}

TEST_F(LightSensorReporterTest, AReadThatHangsHoldsNobodyUp) {
    struct Driver {
        std::binary_semaphore entered{0};
        std::binary_semaphore answer{0};
    };
    const auto driver = std::make_shared<Driver>();
    bool reported = false;
    {
        testing::ManualRunLoop shortLived;
        const auto read = [driver] {
            driver->entered.release();
            driver->answer.acquire();
            return level(1);
        };
        const LightSensorReporter hung(read, everyHour, shortLived, [&](const auto&) { reported = true; });
        driver->entered.acquire();
    }
    // The run loop is gone when the driver answers at last; the thread then ends and releases what it holds.
    driver->answer.release();
    while (driver.use_count() > 1)
        std::this_thread::yield();
    EXPECT_FALSE(reported);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(LightSensorReporterTest, StaysSilentWhenTheProcessIsOutOfThreads) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    const rlimit tiny = {1 << 20, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tiny), 0);  // leaves no room for a stack
    report([] { return level(1); }, everyHour);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    reporter.reset();
    EXPECT_EQ(loop.pendingCount(), 0U);
}
#endif

}  // namespace
}  // namespace tarvex::platform
