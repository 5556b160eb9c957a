#include <unistd.h>

#include <random>

#include "child_process.h"
#include "prelude.h"
#include "tarvex/client.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using test::ChildProcess;

constexpr int rounds = 60;
constexpr int mostSamples = 40;

platform::LinuxOptions hostIn(const TemporaryDirectory& directory) {
    return {.dataDirectory = directory.path() / "data", .bundleDirectory = directory.path()};
}

/// A host with a store and defaults of its own, which samples as fast as it can until it is killed. The lux of each
/// sample is its number, said once the tick that stored it is over.
int sampleForever(const TemporaryDirectory& directory, std::int32_t first, int output) {
    auto made = platform::Platform::makeLinux(hostIn(directory));
    auto scheduler = std::make_unique<testing::ManualTimerScheduler>();
    auto sensors = std::make_unique<testing::ScriptedHidEventSystem>();
    testing::ManualTimerScheduler& timers = *scheduler;
    testing::ScriptedHidEventSystem& sensor = *sensors;
    made->setTimerScheduler(std::move(scheduler));
    made->setHidEventSystem(std::move(sensors));
    if (!platform::Platform::install(std::move(made))) return 1;
    platform::Platform::current().userDefaults().setValueForKey(true, "hasConsentedToTrackAmbientLight");
    bool started = false;
    Client::shared().startTracking({DataReader::ambientLight(1)}, nullptr,
                                   [&started](const Client::Result& result, auto&&) { started = result.has_value(); });
    if (!started) return 2;
    for (std::int32_t number = first;; ++number) {
        sensor.emit(number, 0, 0, 0, 0);
        timers.advance(1);
        if (write(output, &number, sizeof number) != sizeof number) return 3;
    }
}

/// Absent when the host can say no more.
std::optional<std::int32_t> nextAcknowledged(const ChildProcess& host) {
    std::int32_t number = 0;
    if (read(host.output(), &number, sizeof number) != sizeof number) return std::nullopt;
    return number;
}

/// The numbers of the samples that a host which starts now would upload.
std::vector<std::int32_t> storedNumbers(const TemporaryDirectory& directory) {
    EXPECT_TRUE(platform::Platform::install(platform::Platform::makeLinux(hostIn(directory))));
    PersistenceController store(platform::Platform::current());
    std::vector<std::int32_t> numbers;
    for (const TrackingData& sample : test::documentOf(store).trackingData)
        numbers.push_back(static_cast<std::int32_t>(sample.data.at("lux")));
    EXPECT_EQ(store.countTrackingData(), numbers.size());
    return numbers;
}

}  // namespace

TEST(Sigkill, LosesAndRepeatsNoSampleOfAHost) {
    const TemporaryDirectory directory;
    std::mt19937 random(randomSeed(std::random_device{}()));
    std::vector<std::int32_t> acknowledged;
    for (int round = 0; round < rounds; ++round) {
        ChildProcess host([&](int output) { return sampleForever(directory, round * 1'000'000, output); });
        const auto enough = acknowledged.size() + random() % mostSamples;
        while (acknowledged.size() < enough) {
            const auto number = nextAcknowledged(host);
            if (!number) FAIL() << "the host failed with " << host.wait();
            acknowledged.push_back(*number);
        }
        usleep(static_cast<useconds_t>(random() % 5000));  // anywhere in its start, or between two samples
        host.kill();
        while (const auto number = nextAcknowledged(host))
            acknowledged.push_back(*number);
        EXPECT_EQ(host.wait(), -1);
    }

    const std::vector<std::int32_t> stored = storedNumbers(directory);
    EXPECT_TRUE(std::ranges::is_sorted(stored));
    EXPECT_EQ(std::ranges::adjacent_find(stored), stored.end());
    EXPECT_TRUE(std::ranges::includes(stored, acknowledged));
    EXPECT_LE(stored.size(), acknowledged.size() + rounds) << "at most the one under way in each round";
    EXPECT_GT(acknowledged.size(), std::size_t{rounds});
}

}  // namespace tarvex
