#pragma once

#include <version>

#ifndef __cpp_lib_expected
#error "Tarvex needs C++23 with std::expected: g++ 12 or clang 19, or later, with -std=c++23"
#endif

/// Marks what a host may link against; everything else stays inside the shared libraries.
#define TARVEX_EXPORT __attribute__((visibility("default")))
