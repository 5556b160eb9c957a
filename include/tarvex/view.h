#pragma once

#include <memory>

#include "tarvex/export.h"

namespace tarvex {

class InformationView;

/// A host's native view, wrapped by a UI module or by a test. Thread-bound: used on the main thread only.
class TARVEX_EXPORT View {
public:
    virtual ~View() = default;

    /// Puts `child` on top of its siblings, taking it from the parent it had; adding it again only moves it to the
    /// front. The view shares ownership of the child.
    virtual void addSubview(std::shared_ptr<View> child) = 0;
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
