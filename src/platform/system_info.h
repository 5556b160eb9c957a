#pragma once

#include <string>

#include "tarvex/export.h"

namespace tarvex::platform {

class TARVEX_EXPORT SystemInfo {
public:
    virtual ~SystemInfo() = default;

    /// The kernel's name for the machine's hardware; empty when it cannot be had. Thread-safe.
    virtual std::string machine() const = 0;
};

}  // namespace tarvex::platform
