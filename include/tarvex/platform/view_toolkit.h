#pragma once

#include <memory>
#include <utility>

#include "tarvex/export.h"
#include "tarvex/information_view.h"
#include "tarvex/view.h"

namespace tarvex::platform {

/// A view controller that holds its root view: what a toolkit needs when it makes the widgets elsewhere.
class HostingController final : public ViewController {
public:
    explicit HostingController(InformationView rootView) : rootView_(std::move(rootView)) {}

    const InformationView& rootView() const override { return rootView_; }

private:
    InformationView rootView_;
};

/// Shows the library's screens with the host's user-interface toolkit.
class TARVEX_EXPORT ViewToolkit {
public:
    virtual ~ViewToolkit() = default;

    /// A new view controller that displays `rootView`.
    virtual std::shared_ptr<ViewController> makeHostingController(InformationView rootView) = 0;
};

}  // namespace tarvex::platform
