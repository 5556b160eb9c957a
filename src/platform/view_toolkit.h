#pragma once

#include <memory>

#include "tarvex/export.h"
#include "tarvex/information_view.h"
#include "tarvex/view.h"

namespace tarvex::platform {

class TARVEX_EXPORT ViewToolkit {
public:
    virtual ~ViewToolkit() = default;

    /// A new view controller that displays `rootView`.
    virtual std::shared_ptr<ViewController> makeHostingController(InformationView rootView) = 0;
};

}  // namespace tarvex::platform
