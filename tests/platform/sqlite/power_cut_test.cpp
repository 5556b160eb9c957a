

#include "power_cut_vfs.h"
#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::PowerCutVfs;
using test::SampleStore;

/// What the files hold after a power cut, and what must be in them.
struct Cut {
    PowerCutVfs::Files files;
    std::vector<int> acknowledged;           // the samples stored before the operation that the cut hit
    std::vector<int> complete;               // the samples if that operation came through
    std::vector<int> deleted;                // by acknowledged deletions
    std::vector<int> deletedByTheOperation;  // if it came through
};

/// Works on a store as a host does, and cuts the power now and then: the files as they would be are kept, the work goes
/// on.
class Host {
public:
    explicit Host(unsigned seed) : random_(seed) {
        vfs_.onCall = [this] {
            if (random_() % 24 != 0) return;
            state_.files = vfs_.afterPowerCut(random_);
            cuts_.push_back(state_);
        };
        reopen();
    }

    std::vector<Cut> work(int operations) {
        for (int i = 0; i < operations; ++i) {
            switch (random_() % 16) {
                case 0:
                    removeAll();
                    store_->context().scrub();
                    break;
                case 1:
                    reopen();
                    break;
                case 2:
                    add(1 + static_cast<int>(random_() % 40));
                    break;
                default:
                    add(1);
            }
        }
        return std::move(cuts_);
    }

private:
    void reopen() {
        store_.reset();
        store_ = std::make_unique<SampleStore>(directory_.path(), vfs_.name());
        ASSERT_TRUE(store_->open());
    }

    void add(int count) {
        for (int i = 0; i < count; ++i) {
            store_->insert(next_);
            state_.complete.push_back(next_++);
        }
        ASSERT_TRUE(store_->context().save());
        acknowledge();
    }

    void removeAll() {
        state_.deletedByTheOperation = state_.acknowledged;
        state_.complete.clear();
        ASSERT_TRUE(store_->removeAll());
        acknowledge();
    }

    void acknowledge() {
        state_.acknowledged = state_.complete;
        std::ranges::move(state_.deletedByTheOperation, std::back_inserter(state_.deleted));
        state_.deletedByTheOperation.clear();
    }

    std::mt19937 random_;
    TemporaryDirectory directory_;
    PowerCutVfs vfs_;
    Cut state_;
    std::vector<Cut> cuts_;
    int next_ = 0;
    std::unique_ptr<SampleStore> store_;
};

void expectNothingLost(const Cut& cut) {
    const TemporaryDirectory directory;
    for (const auto& [name, contents] : cut.files)
        std::ofstream(directory.path() / name, std::ios::binary) << contents;
    auto deleted = cut.deleted;
    {
        const PowerCutVfs withoutSyncs;
        SampleStore store(directory.path(), withoutSyncs.name());
        const auto opened = store.open();
        ASSERT_TRUE(opened) << opened.error().description;
        const auto numbers = store.numbers();
        ASSERT_TRUE(numbers) << numbers.error().description;
        EXPECT_TRUE(*numbers == cut.acknowledged || *numbers == cut.complete) << testing::PrintToString(*numbers);
        EXPECT_EQ(store.count(), numbers->size());
        if (*numbers == cut.complete) std::ranges::copy(cut.deletedByTheOperation, std::back_inserter(deleted));
        EXPECT_TRUE(store.add(1'000'000));
    }
    EXPECT_EQ(test::integrity(directory.path()), "ok");
    EXPECT_FALSE(test::leavesTrace(directory.path(), deleted));
}

class PowerCut : public testing::TestWithParam<unsigned> {};

TEST_P(PowerCut, LosesNoAcknowledgedSampleAndBringsNoDeletedOneBack) {
    const auto cuts = Host(randomSeed(GetParam())).work(120);
    ASSERT_GE(cuts.size(), 20U);
    for (std::size_t i = 0; i < cuts.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_NO_FATAL_FAILURE(expectNothingLost(cuts[i]));
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, PowerCut, testing::Range(1U, 7U));

}  // namespace
}  // namespace tarvex::platform
