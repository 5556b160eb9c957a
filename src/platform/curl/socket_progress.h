#pragma once

#include <cstdint>
#include <vector>

namespace tarvex::platform {

/// How many bytes the peers of some TCP sockets have acknowledged.
///
/// What was handed to the kernel may lie in its send buffer for minutes: on a slow line only this number tells an
/// upload that moves from one that has stalled.
class SocketProgress {
public:
    SocketProgress() = default;
    ~SocketProgress();
    SocketProgress(const SocketProgress&) = delete;
    SocketProgress& operator=(const SocketProgress&) = delete;

    /// Watches `socket` through a descriptor of its own, so that its number may be closed and used again.
    void watch(int socket) noexcept;

    /// Lets go of the sockets, so that closing them reaches their peers.
    void end() noexcept;

    std::uint64_t acknowledgedBytes() const;

private:
    std::vector<int> sockets_;
};

}  // namespace tarvex::platform
