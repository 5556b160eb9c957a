#pragma once

#include <memory>
#include <vector>

#include "tarvex/export.h"

namespace tarvex {

class InformationView;

/// A host's native view, wrapped by a UI module or by a test. Thread-bound, as soon as it has a parent or a child.
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
    /// The base's own implementation keeps the child; it ignores null, the view itself and every view that this one
    /// lies in, so that no view owns itself. An override that calls it can rely on a child having one parent, of any
    /// class. A child of an override that keeps its children by itself has no parent that other views know.
    virtual void addSubview(std::shared_ptr<View> child) = 0;

    /// The children that the base's `addSubview` keeps; the last one is in front.
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

/// A view for hosts without a screen: keeps its children, shows nothing. Thread-safe.
TARVEX_EXPORT std::shared_ptr<View> makeHeadlessView();

/// A screen to present, from which a UI module makes its widget. Thread-bound; outlives no platform that it was made
/// with.
class TARVEX_EXPORT ViewController {
public:
    virtual ~ViewController() = default;
    /// The screen; lives as long as the view controller.
    virtual const InformationView& rootView() const = 0;
};

}  // namespace tarvex
