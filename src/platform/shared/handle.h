#pragma once

#include <memory>

namespace tarvex::platform {

template <auto release>
struct Release {
    template <typename T>
    void operator()(T* handle) const {
        release(handle);
    }
};

/// Owner of a C library's handle, which `release` ends.
template <typename T, auto release>
using Handle = std::unique_ptr<T, Release<release>>;

}  // namespace tarvex::platform
