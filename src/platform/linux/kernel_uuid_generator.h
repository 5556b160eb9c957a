#pragma once

#include "tarvex/platform/uuid_generator.h"

namespace tarvex::platform {

/// Asks the kernel for each UUID: a process that was forked must not repeat its parent's.
class KernelUuidGenerator final : public UuidGenerator {
public:
    Uuid makeUuid() override;
};

}  // namespace tarvex::platform
