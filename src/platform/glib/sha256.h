#pragma once

#include <glib.h>

#include <string>
#include <string_view>

#include "platform/shared/handle.h"

namespace tarvex::platform {

/// The SHA-256 of the bytes, in lower-case hexadecimal digits.
inline std::string sha256Of(std::string_view bytes) {
    const Handle<char, g_free> sum(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
    return sum.get();
}

}  // namespace tarvex::platform
