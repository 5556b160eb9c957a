#pragma once

#include <functional>
#include <string>

namespace tarvex::glib {

/// Calls `changed` on the main thread, a second after nodes of cameras have come, gone or changed their mode below
/// `devices`, for as long as the process lives: by then the system has given them their rights. Polls nothing;
/// where the directory cannot be watched, nothing is called. Thread-safe.
void watchCameras(const std::string& devices, std::function<void()> changed);

}  // namespace tarvex::glib
