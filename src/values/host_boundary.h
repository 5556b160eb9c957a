#pragma once

#include <functional>
#include <thread>
#include <utility>

namespace tarvex {

/// Calls `callback` unless it is empty. An exception that leaves the host's callback terminates the process:
/// none crosses the library's boundary, in either direction.
template <typename... Parameters, typename... Arguments>
void callHost(const std::function<void(Parameters...)>& callback, Arguments&&... arguments) noexcept {
    if (callback) callback(std::forward<Arguments>(arguments)...);
}

/// True on the main thread, which is the first thread that uses a thread-bound operation. Thread-bound operations
/// assert it, so that a debug build ends where a host uses one of them on another thread.
inline bool isOnMainThread() noexcept {
    static const std::thread::id mainThread = std::this_thread::get_id();
    return std::this_thread::get_id() == mainThread;
}

}  // namespace tarvex
