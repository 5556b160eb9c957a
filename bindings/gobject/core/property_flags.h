#pragma once

#include <glib-object.h>

namespace tarvex::glib {

// Flags of the layer's properties, all with names that are never freed.

// NOLINTBEGIN(clang-analyzer-optin.core.EnumCastOutOfRange): an enumeration of bits
inline constexpr auto readOnly = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
inline constexpr auto readWrite = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
/// Notified where it is set, and not by GObject.
inline constexpr auto readWriteNotifying = static_cast<GParamFlags>(readWrite | G_PARAM_EXPLICIT_NOTIFY);
inline constexpr auto givenOnce = static_cast<GParamFlags>(readWrite | G_PARAM_CONSTRUCT_ONLY);
// NOLINTEND(clang-analyzer-optin.core.EnumCastOutOfRange)

}  // namespace tarvex::glib
