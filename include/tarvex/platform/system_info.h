#pragma once

#include <string>

#include "tarvex/export.h"

namespace tarvex::platform {

/// What an upload says of the device. Thread-safe.
class TARVEX_EXPORT SystemInfo {
public:
    virtual ~SystemInfo() = default;

    /// The kernel's name for the machine's hardware; empty when it cannot be had.
    virtual std::string machine() const = 0;
};

}  // namespace tarvex::platform
