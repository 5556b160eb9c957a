#pragma once

#include <glib-object.h>

/* Marks what a host may link against; everything else stays inside the shared library. */
#define TARVEX_GLIB_EXPORT __attribute__((visibility("default"))) extern
