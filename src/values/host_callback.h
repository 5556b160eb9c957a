#pragma once

#include <functional>
#include <utility>

namespace tarvex {

/// Calls what the host gave, if it gave anything. An exception that leaves the host's callback terminates the process:
/// none crosses the library's boundary, in either direction.
template <typename... Parameters, typename... Arguments>
void callHost(const std::function<void(Parameters...)>& callback, Arguments&&... arguments) noexcept {
    if (callback) callback(std::forward<Arguments>(arguments)...);
}

}  // namespace tarvex
