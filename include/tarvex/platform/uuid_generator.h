#pragma once

#include "tarvex/export.h"
#include "tarvex/uuid.h"

namespace tarvex::platform {

/// Names installations and records. Thread-safe.
class TARVEX_EXPORT UuidGenerator {
public:
    virtual ~UuidGenerator() = default;

    /// A new random UUID (version 4, RFC 9562 section 5.4).
    virtual Uuid makeUuid() = 0;
};

}  // namespace tarvex::platform
