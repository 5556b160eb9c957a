#pragma once

// What most tests use; precompiled.

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <expected>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <iterator>
#include <latch>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <ranges>
#include <semaphore>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "temporary_directory.h"

namespace tarvex {

namespace test {
// No test, nor any program that it starts, reaches the session bus of the person who runs it.
inline const int noSessionBus = ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);

/// The seed of a test's random numbers: TARVEX_TEST_SEED of the environment, else `usual`. Printed, to be used again.
inline std::uint32_t randomSeed(std::uint32_t usual) {
    const char* chosen = std::getenv("TARVEX_TEST_SEED");
    const auto seed = chosen == nullptr ? usual : static_cast<std::uint32_t>(std::stoul(chosen));
    std::cout << "TARVEX_TEST_SEED=" << seed << '\n';
    return seed;
}
}  // namespace test

using namespace std::chrono_literals;
using test::contentsOf;
using test::randomSeed;
using test::TemporaryDirectory;
using test::writeFile;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::Optional;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

namespace test {

/// True as soon as `condition` is; false when it never became so within some seconds.
inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

}  // namespace test
using test::eventually;

}  // namespace tarvex
