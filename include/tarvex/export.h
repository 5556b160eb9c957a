#pragma once

/// Marks what a host may link against; everything else stays inside the shared libraries.
#define TARVEX_EXPORT __attribute__((visibility("default")))
