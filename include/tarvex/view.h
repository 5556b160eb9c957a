#pragma once

#include <memory>
#include <vector>

#include "tarvex/export.h"

namespace tarvex {

class InformationView;

/// A host's native view, wrapped by a UI module or by a test.
///
/// Thread-bound: made, used and destroyed on the main thread only.
class TARVEX_EXPORT View {
public:
    View() = default;
    /// Parent and children belong to one object: a copy has none, and an assignment leaves them as they are.
    View(const View& /*other*/) {}
    View& operator=(const View& /*other*/) { return *this; }  // NOLINT(bugprone-unhandled-self-assignment)
    virtual ~View();

    /// Puts `child` on top of its siblings, taking it from the parent it had; adding it again only moves it to the
    /// front. The view shares ownership of the child.
    ///
    /// The body that the base has keeps the child; it ignores null, the view itself and every view that this one lies
    /// in, so that no view owns itself. An override that calls it can rely on a child having one parent, of whatever
    /// class. A child of an override that keeps its children by itself has no parent known to others.
    virtual void addSubview(std::shared_ptr<View> child) = 0;

    /// The children that the base's `addSubview` has kept; the last one is in front.
    const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }

protected:
    /// `child` is about to leave `subviews()`, for another parent or for the front. Not called when this view is
    /// destroyed.
    virtual void willRemoveSubview(View& /*child*/) {}

private:
    void remove(View& child);

    View* parent_ = nullptr;  // keeps this view
    std::vector<std::shared_ptr<View>> subviews_;
};

/// A view for hosts without a screen: keeps its children, shows nothing.
TARVEX_EXPORT std::shared_ptr<View> makeHeadlessView();

/// What `Client::informationViewController` returns; a UI module knows its widget.
class TARVEX_EXPORT ViewController {
public:
    virtual ~ViewController() = default;
    /// The screen that it shows; lives as long as the view controller.
    virtual const InformationView& rootView() const = 0;
};

}  // namespace tarvex
