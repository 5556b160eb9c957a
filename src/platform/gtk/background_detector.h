#pragma once

#include <functional>
#include <memory>

namespace tarvex::gtk {

/// Tells when the process's GTK windows have left the foreground: when all of them are unmapped or minimised, or none
/// of them has been active for 5 seconds. Sleeps as long as no window changes.
class BackgroundDetector {
public:
    struct Callbacks {
        std::function<void()> didEnterBackground;       ///< once for each transition, on the main loop
        std::function<bool()> isCoveredBySystemDialog;  ///< while it says so, nothing counts as a transition
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
