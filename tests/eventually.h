#pragma once

#include "prelude.h"

namespace tarvex::test {

/// True as soon as `condition` is; false when it never became so within some seconds.
inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

}  // namespace tarvex::test
