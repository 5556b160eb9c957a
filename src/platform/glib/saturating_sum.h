#pragma once

#include <chrono>

namespace tarvex::platform {

/// The time `later` after `now`, which is not negative; the end of the range where that lies past it.
constexpr std::chrono::nanoseconds saturatingSum(std::chrono::nanoseconds now, std::chrono::nanoseconds later) {
    constexpr auto end = std::chrono::nanoseconds::max();
    return later > end - now ? end : now + later;
}

}  // namespace tarvex::platform
