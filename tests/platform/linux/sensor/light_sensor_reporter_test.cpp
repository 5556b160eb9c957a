#include "platform/linux/sensor/light_sensor_reporter.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "platform/linux/deadline_grid.h"
#include "testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;
using tarvex::testing::ManualRunLoop;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto everyMillisecond = [] { return std::chrono::microseconds(1ms); };
constexpr auto everyHour = [] { return std::chrono::microseconds(1h); };

LightReading level(std::intptr_t lux) {
    return {lux, {}};
}

TEST(LightSensorReporter, ReportsTheFirstReadingAtOnceThroughTheRunLoop) {
    ManualRunLoop loop;
    std::vector<std::intptr_t> levels;
    LightSensorReporter reporter([] { return level(7); }, everyHour, loop,
                                 [&](const LightReading& reading) { levels.push_back(reading.lux); });
    loop.waitForPending();
    EXPECT_THAT(levels, IsEmpty());
    loop.runPending();
    EXPECT_THAT(levels, ElementsAre(7));
}

TEST(LightSensorReporter, ReportsAFreshReadingOnceAnInterval) {
    ManualRunLoop loop;
    const auto start = monotonicNow();
    std::atomic<int> looks = 0;
    std::vector<std::intptr_t> levels;
    LightSensorReporter reporter([&looks] { return level(++looks); }, everyMillisecond, loop,
                                 [&](const LightReading& reading) {
                                     levels.push_back(reading.lux);
                                     if (levels.size() == 5) loop.stop();
                                 });
    loop.run();
    EXPECT_EQ(std::ranges::adjacent_find(levels, std::greater_equal()), levels.end());
    EXPECT_GE(std::chrono::steady_clock::now() - start, (levels.back() - 1) * 1ms);
}

TEST(LightSensorReporter, ABusyRunLoopGetsTheLatestReadingAndNoBacklog) {
    ManualRunLoop loop;
    std::atomic<int> looks = 0;
    std::binary_semaphore tenth(0);
    std::vector<std::intptr_t> levels;
    LightSensorReporter reporter(
        [&] {
            if (++looks == 11)  // the tenth reading was handed over
                tenth.release();
            return looks > 10 ? std::nullopt : std::optional(level(looks));
        },
        everyMillisecond, loop, [&](const LightReading& reading) { levels.push_back(reading.lux); });
    tenth.acquire();
    EXPECT_EQ(loop.runPending(), 1U);
    EXPECT_THAT(levels, ElementsAre(10));
}

TEST(LightSensorReporter, ALookWithoutAReadingReportsNothingAndTheNextOneDoes) {
    ManualRunLoop loop;
    std::atomic<int> looks = 0;
    std::vector<std::intptr_t> levels;
    LightSensorReporter reporter([&looks] { return ++looks % 3 == 0 ? std::optional(level(looks)) : std::nullopt; },
                                 everyMillisecond, loop,
                                 [&](const LightReading& reading) {
                                     levels.push_back(reading.lux);
                                     loop.stop();
                                 });
    loop.run();
    EXPECT_EQ(levels.front() % 3, 0);
}

TEST(LightSensorReporter, NoReportBeginsAfterItIsGoneNotEvenAQueuedOne) {
    ManualRunLoop loop;
    bool reported = false;
    {
        LightSensorReporter reporter([] { return level(1); }, everyHour, loop,
                                     [&](const LightReading&) { reported = true; });
        loop.waitForPending();
    }
    EXPECT_EQ(loop.runPending(), 1U);
    EXPECT_FALSE(reported);
}

TEST(LightSensorReporter, ItsOwnReportMayDestroyIt) {
    ManualRunLoop loop;
    std::unique_ptr<LightSensorReporter> reporter;
    const auto held = std::make_shared<int>(0);
    reporter = std::make_unique<LightSensorReporter>([] { return level(1); }, everyHour, loop,
                                                     [&reporter, &loop, held](const LightReading&) {
                                                         reporter.reset();
                                                         ++*held;
                                                         loop.stop();
                                                     });
    loop.run();
    EXPECT_EQ(*held, 1);
}

TEST(LightSensorReporter, AReadThatHangsHoldsNobodyUp) {
    struct Driver {
        std::counting_semaphore<> entered{0};
        std::counting_semaphore<> answer{0};
    };
    const auto driver = std::make_shared<Driver>();
    bool reported = false;
    {
        auto loop = std::make_unique<ManualRunLoop>();
        auto hung = std::make_unique<LightSensorReporter>(
            [driver] {
                driver->entered.release();
                driver->answer.acquire();
                return level(1);
            },
            everyMillisecond, *loop, [&](const LightReading&) { reported = true; });
        driver->entered.acquire();

        bool otherReported = false;
        LightSensorReporter other([] { return level(2); }, everyMillisecond, *loop,
                                  [&](const LightReading&) {
                                      otherReported = true;
                                      loop->stop();
                                  });
        loop->run();
        EXPECT_TRUE(otherReported);
        hung.reset();
    }
    // The run loop is gone when the driver answers at last; the thread then ends and releases what it holds.
    driver->answer.release();
    while (driver.use_count() > 1)
        std::this_thread::yield();
    EXPECT_FALSE(reported);
}

TEST(LightSensorReporter, ReadsNoMoreOnceItIsGone) {
    ManualRunLoop loop;
    const auto looks = std::make_shared<std::atomic<int>>(0);
    {
        LightSensorReporter reporter(
            [looks] {
                ++*looks;
                return level(1);
            },
            everyHour, loop, [](const LightReading&) {});
        loop.waitForPending();
    }
    loop.runPending();
    while (looks.use_count() > 1)  // the sleeping thread ends at once, not in an hour
        std::this_thread::yield();
    EXPECT_EQ(*looks, 1);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(LightSensorReporter, WithoutAThreadToBeHadItStaysSilent) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    const rlimit tiny = {1 << 20, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tiny), 0);  // leaves no room for a stack
    ManualRunLoop loop;
    {
        LightSensorReporter reporter([] { return level(1); }, everyHour, loop, [](const LightReading&) {});
        ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    }
    EXPECT_EQ(loop.pendingCount(), 0U);
}
#endif

}  // namespace
}  // namespace tarvex::platform
