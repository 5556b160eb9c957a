#pragma once

#include <chrono>
#include <memory>

#include "platform/gtk/background_detector.h"
#include "tarvex/platform/platform.h"
#include "tarvex/platform/view_toolkit.h"

namespace tarvex::gtk {

/// Controllers whose widget `widget` makes. Posts `applicationDidEnterBackground` while it lives.
class GtkViewToolkit final : public platform::ViewToolkit {
public:
    /// Null when `platform`, which must outlive it, has such a toolkit already.
    static std::unique_ptr<GtkViewToolkit> make(
        platform::Platform& platform,
        std::chrono::milliseconds timeWithoutFocus = BackgroundDetector::usualTimeWithoutFocus);

    ~GtkViewToolkit() override;
    GtkViewToolkit(const GtkViewToolkit&) = delete;
    GtkViewToolkit& operator=(const GtkViewToolkit&) = delete;

    std::shared_ptr<ViewController> makeHostingController(InformationView rootView) override;

private:
    GtkViewToolkit(platform::Platform& platform, std::chrono::milliseconds timeWithoutFocus);

    platform::Platform& platform_;
    BackgroundDetector background_;
};

}  // namespace tarvex::gtk
