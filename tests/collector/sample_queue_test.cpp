#include "collector/store/document.h"
#include "prelude.h"

namespace tarvex::collector {

TEST(SampleQueue, KeepsMoreThanFitsInMemoryAndShowsItSortedAndWithoutRepeats) {
    const TemporaryDirectory directory;
    Document document(directory.path());
    constexpr int count = 60'000;
    for (int sample = count; sample > 0; --sample) {
        document.light.push({.time = sample / 2 * 1.0, .lux = 1, .channels = {}});
        document.others.push({.time = sample * 1.0, .type = "other", .values = std::string(100, 'x')});
    }
    EXPECT_EQ(document.sampleCount(), 2 * count);
    std::size_t shown = 0;
    document.light.visit([&](std::span<const AmbientLight> batch) {
        EXPECT_TRUE(std::ranges::is_sorted(batch));
        EXPECT_TRUE(std::ranges::adjacent_find(batch) == batch.end());
        shown += batch.size();
    });
    EXPECT_GE(shown, count / 2 + 1);
    EXPECT_LE(shown, count / 2 + 100) << "a repeat may be left at the borders of the batches";
    double least = count;
    bool allWhole = true;
    document.others.visit([&](std::span<const OtherSample> batch) {
        for (const OtherSample& other : batch) {
            least = std::min(least, other.time);
            allWhole = allWhole && other.values.size() == 100;
        }
    });
    EXPECT_EQ(least, 1);
    EXPECT_TRUE(allWhole);
}

}  // namespace tarvex::collector
