#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "child_process.h"
#include "sample_store.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using test::ChildProcess;
using test::SampleStore;

constexpr int rounds = 60;
constexpr int mostSamples = 40;

/// Stores samples until it is killed, and says so after each.
int sampleForever(const std::filesystem::path& directory, int first, int output) {
    SampleStore store(directory);
    if (!store.open()) return 1;
    for (int number = first;; ++number) {
        if (!store.add(number) || write(output, &number, sizeof(number)) != sizeof(number)) return 2;
    }
}

/// Absent when the child can say no more.
std::optional<int> nextAcknowledged(const ChildProcess& child) {
    int number = 0;
    if (read(child.output(), &number, sizeof(number)) != sizeof(number)) return std::nullopt;
    return number;
}

TEST(Sigkill, LosesAndRepeatsNoAcknowledgedSample) {
    const test::TemporaryDirectory directory;
    std::mt19937 random(std::random_device{}());
    std::vector<int> acknowledged;
    for (int round = 0; round < rounds; ++round) {
        ChildProcess child([&](int output) { return sampleForever(directory.path(), round * 1'000'000, output); });
        const auto enough = acknowledged.size() + random() % mostSamples;
        while (acknowledged.size() < enough) {
            const auto number = nextAcknowledged(child);
            if (!number) FAIL() << "the child failed with " << child.wait();
            acknowledged.push_back(*number);
        }
        usleep(static_cast<useconds_t>(random() % 5000));  // anywhere in opening the store, or between two samples
        child.kill();
        while (const auto number = nextAcknowledged(child))
            acknowledged.push_back(*number);
        EXPECT_EQ(child.wait(), -1);
    }

    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    const auto numbers = store.numbers();
    ASSERT_TRUE(numbers);
    EXPECT_TRUE(std::ranges::is_sorted(*numbers));
    EXPECT_EQ(std::ranges::adjacent_find(*numbers), numbers->end());
    EXPECT_TRUE(std::ranges::includes(*numbers, acknowledged));
    EXPECT_LE(numbers->size(), acknowledged.size() + rounds) << "at most the one under way in each round";
    EXPECT_EQ(store.count(), numbers->size());
    EXPECT_EQ(test::integrity(directory.path()), "ok");
}

}  // namespace
}  // namespace tarvex::platform
