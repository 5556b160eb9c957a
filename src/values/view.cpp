#include "tarvex/view.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "values/host_boundary.h"

namespace tarvex {

namespace {

class HeadlessView final : public View {
public:
    void addSubview(std::shared_ptr<View> child) override { View::addSubview(std::move(child)); }
};

}  // namespace

View::~View() {
    assert((parent_ == nullptr && subviews_.empty()) || isOnMainThread());
    // Children end after the parent that shares them; only a shared pointer that does not own lets one end before.
    if (parent_ != nullptr) parent_->remove(*this);
    // A child that ends finds no children here.
    const auto children = std::exchange(subviews_, {});
    for (const auto& child : children)
        child->parent_ = nullptr;
}

void View::addSubview(std::shared_ptr<View> child) {
    assert(isOnMainThread() && "a View is thread-bound: use it on the main thread");
    if (!child || (!subviews_.empty() && subviews_.back() == child)) return;
    for (const View* view = this; view != nullptr; view = view->parent_)
        if (view == child.get()) return;
    if (child->parent_ != nullptr) child->parent_->remove(*child);
    child->parent_ = this;
    subviews_.push_back(std::move(child));
}

void View::remove(View& child) {
    willRemoveSubview(child);
    const auto place = std::ranges::find(subviews_, &child, &std::shared_ptr<View>::get);
    if (place == subviews_.end()) return;
    const auto removed = std::move(*place);  // ends last: it may be the last reference
    child.parent_ = nullptr;
    subviews_.erase(place);
}

std::shared_ptr<View> makeHeadlessView() {
    return std::make_shared<HeadlessView>();
}

}  // namespace tarvex
