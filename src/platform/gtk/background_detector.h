#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "tarvex/platform/platform.h"

namespace tarvex::gtk {

/// Tells when the process's GTK windows have left the foreground: when all of them are unmapped or minimised, or none
/// of them has been active for a while although one was before. The closing of the last window by its user and the end
/// of the process's GApplication are told of before the host's loop can end. Sleeps as long as no window changes,
/// unless a dialog of the system's covers them: then it looks once in that while whether the dialog has gone.
class BackgroundDetector {
public:
    static constexpr std::chrono::milliseconds usualTimeWithoutFocus{5000};

    struct Callbacks {
        std::function<void()> didEnterBackground;       ///< once for each transition, on the main loop
        std::function<bool()> isCoveredBySystemDialog;  ///< while it says so, time without the focus does not count
    };

    explicit BackgroundDetector(Callbacks callbacks,
                                std::chrono::milliseconds timeWithoutFocus = usualTimeWithoutFocus);
    ~BackgroundDetector();
    BackgroundDetector(const BackgroundDetector&) = delete;
    BackgroundDetector& operator=(const BackgroundDetector&) = delete;

private:
    class Watch;

    std::shared_ptr<Watch> watch_;  // signals of windows hold it weakly
};

/// Posts `applicationDidEnterBackground` to the observers of `platform` as long as it lives; does nothing when this was
/// called for it before.
void postBackground(platform::Platform& platform,
                    std::chrono::milliseconds timeWithoutFocus = BackgroundDetector::usualTimeWithoutFocus);

}  // namespace tarvex::gtk
