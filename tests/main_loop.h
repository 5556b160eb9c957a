#pragma once

#include <glib.h>

#include "prelude.h"

namespace tarvex::test {

/// Runs the main loop until `holds`; false when it still does not after 20 s.
inline bool runUntil(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        if (g_main_context_iteration(nullptr, FALSE) == FALSE) g_usleep(1000);
    }
    return true;
}

}  // namespace tarvex::test
