#pragma once

#include <string>
#include <string_view>

namespace tarvex::platform {

/// A name for a file or directory that stands for `text` and for no other text: bytes other than letters, digits, '.',
/// '-' and '_', and a leading '.', become %XX. A name that would be longer than 143 bytes, the least that a file system
/// in common use allows, is cut and ends in '~' and a digest. Empty for an empty text only.
std::string safeFileName(std::string_view text);

}  // namespace tarvex::platform
