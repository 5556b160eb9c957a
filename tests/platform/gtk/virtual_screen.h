#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

#include "temporary_directory.h"

namespace tarvex::test {

/// An X server without a screen, a window manager on it, and an environment in which GTK looks the same everywhere.
/// Made before GTK is initialised.
class VirtualScreen {
public:
    VirtualScreen();
    ~VirtualScreen();
    VirtualScreen(const VirtualScreen&) = delete;
    VirtualScreen& operator=(const VirtualScreen&) = delete;

    /// Runs a program on the screen to its end while the main loop goes on; what it prints.
    static std::string run(const std::vector<std::string>& command);

    struct Stop {
        void operator()(GSubprocess* process) const;
    };
    /// Killed at the end, unless it has ended.
    using Process = std::unique_ptr<GSubprocess, Stop>;
    /// Starts a program on the screen, whose output is thrown away.
    static Process start(const std::vector<std::string>& command);

private:
    TemporaryDirectory home_;
    Process server_;
    Process windowManager_;
};

}  // namespace tarvex::test
