#pragma once

#include <functional>
#include <memory>

namespace tarvex::gtk {

/// Tells when the process's GTK windows have left the foreground: when all of them are unmapped or minimised, or none
/// of them has been active for 5 seconds although one was before. Sleeps as long as no window changes, unless a dialog
/// of the system's covers them: then it looks every 5 seconds whether that has gone.
class BackgroundDetector {
public:
    struct Callbacks {
        std::function<void()> didEnterBackground;       ///< once for each transition, on the main loop
        std::function<bool()> isCoveredBySystemDialog;  ///< while it says so, time in the background does not count
    };

    explicit BackgroundDetector(Callbacks callbacks);
    ~BackgroundDetector();
    BackgroundDetector(const BackgroundDetector&) = delete;
    BackgroundDetector& operator=(const BackgroundDetector&) = delete;

private:
    class Watch;

    std::shared_ptr<Watch> watch_;  // signals of windows hold it weakly
};

}  // namespace tarvex::gtk
