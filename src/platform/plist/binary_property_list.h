#pragma once

#include <string_view>

namespace tarvex::platform {

/// Whether a binary property list can be handed to libplist, which trusts its input too far: it follows nested and
/// shared objects recursively, one copy a reference, so that a small file can exhaust the stack or the memory, and it
/// reads damaged text as shorter text.
///
/// True when every object that the root reaches lies inside `bytes`, nests no deeper than 512 levels, takes no more
/// than 4 MiB with a copy for each reference, and when all text is Unicode without U+0000.
bool isSafeBinaryPropertyList(std::string_view bytes);

}  // namespace tarvex::platform
