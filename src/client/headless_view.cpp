#include <algorithm>
#include <utility>
#include <vector>

#include "tarvex/view.h"

namespace tarvex {

namespace {

class HeadlessView final : public View {
public:
    HeadlessView() { all().push_back(this); }
    ~HeadlessView() override { std::erase(all(), this); }
    HeadlessView(const HeadlessView&) = delete;
    HeadlessView& operator=(const HeadlessView&) = delete;

    void addSubview(std::shared_ptr<View> child) override {
        if (!child || child.get() == this) return;
        for (HeadlessView* view : all())
            std::erase(view->children_, child);
        children_.push_back(std::move(child));
    }

private:
    // Never destroyed: a host may keep a view until the end of the process.
    static std::vector<HeadlessView*>& all() {
        static auto& views = *new std::vector<HeadlessView*>;
        return views;
    }

    std::vector<std::shared_ptr<View>> children_;  // the last one is in front
};

}  // namespace

std::shared_ptr<View> makeHeadlessView() {
    return std::make_shared<HeadlessView>();
}

}  // namespace tarvex
