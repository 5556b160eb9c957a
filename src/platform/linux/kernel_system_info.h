#pragma once

#include <sys/utsname.h>

#include <cstring>

#include "tarvex/platform/system_info.h"

namespace tarvex::platform {

class KernelSystemInfo final : public SystemInfo {
public:
    std::string machine() const override {
        utsname names{};  // stays empty where uname fails
        uname(&names);
        return {names.machine, strnlen(names.machine, sizeof names.machine)};
    }
};

}  // namespace tarvex::platform
