#pragma once

#include <chrono>
#include <optional>

namespace tarvex::platform {

/// A moment of the monotonic clock, as GLib counts it too.
using Instant = std::chrono::time_point<std::chrono::steady_clock, std::chrono::microseconds>;

/// The end of the clock's own range.
inline constexpr Instant endOfTime =
    std::chrono::floor<std::chrono::microseconds>(std::chrono::steady_clock::time_point::max());

inline Instant monotonicNow() {
    return std::chrono::floor<std::chrono::microseconds>(std::chrono::steady_clock::now());
}

/// The first moment of the grid `last + n × interval` that lies after `now`, which is not before `last`: repeated work
/// neither drifts nor catches up on what it missed. Absent when the clock does not reach so far.
constexpr std::optional<Instant> nextDeadline(Instant last, std::chrono::microseconds interval, Instant now) {
    const auto steps = (now - last) / interval + 1;
    if (steps > (endOfTime - last) / interval) return std::nullopt;
    return last + steps * interval;
}

/// The time `later` after `now`, which is not negative; the end of the range where that lies past it.
constexpr std::chrono::nanoseconds saturatingSum(std::chrono::nanoseconds now, std::chrono::nanoseconds later) {
    constexpr auto end = std::chrono::nanoseconds::max();
    return later > end - now ? end : now + later;
}

}  // namespace tarvex::platform
