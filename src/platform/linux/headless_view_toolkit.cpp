#include "platform/linux/headless_view_toolkit.h"

#include <utility>

namespace tarvex::platform {
namespace {

class HeadlessViewController final : public ViewController {
public:
    explicit HeadlessViewController(InformationView rootView) : rootView_(std::move(rootView)) {}

    const InformationView& rootView() const override { return rootView_; }

private:
    InformationView rootView_;
};

}  // namespace

std::shared_ptr<ViewController> HeadlessViewToolkit::makeHostingController(InformationView rootView) {
    return std::make_shared<HeadlessViewController>(std::move(rootView));
}

}  // namespace tarvex::platform
