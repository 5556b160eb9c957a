#include <algorithm>
#include <utility>
#include <vector>

#include "tarvex/view.h"

namespace tarvex {

namespace {

class HeadlessView final : public View {
public:
    void addSubview(std::shared_ptr<View> child) override {
        std::erase(children_, child);
        children_.push_back(std::move(child));
    }

private:
    std::vector<std::shared_ptr<View>> children_;  // the last one is in front
};

}  // namespace

std::shared_ptr<View> makeHeadlessView() {
    return std::make_shared<HeadlessView>();
}

}  // namespace tarvex
