#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace tarvex::platform {

/// The number of bytes that the peers of some TCP sockets have acknowledged. Reentrant.
///
/// Bytes that the kernel has accepted may stay in its send buffer for minutes: on a slow line only this number tells an
/// upload that moves from one that has stalled.
class SocketProgress {
public:
    SocketProgress() = default;
    ~SocketProgress();
    SocketProgress(const SocketProgress&) = delete;
    SocketProgress& operator=(const SocketProgress&) = delete;

    /// Watches `socket` through a descriptor of its own, so that its number may be closed and used again.
    void watch(int socket) noexcept;

    /// Releases the sockets, so that closing them reaches their peers.
    void end() noexcept;

    std::uint64_t acknowledgedBytes() const;

private:
    std::vector<int> sockets_;
};

/// Decides when a transfer has to be ended from this side: nothing has moved for its time-out, noticed at most a
/// sixtieth of it late, or its answer goes on for twice the time-out. Reentrant.
class TransferPatience {
public:
    using Clock = std::chrono::steady_clock;

    struct Look {
        std::uint64_t movedBytes;
        bool answering;  ///< the request has been sent, and something of the answer is there
    };
    enum class Verdict : std::uint8_t { goOn, stalled, answerTooLong };

    TransferPatience(Clock::duration timeout, Clock::time_point begin)
        : timeout_(timeout), lastLook_(begin), lastProgress_(begin) {}

    /// Without a look while the connection is being made: curl's own connect time-out, whose text names what took too
    /// long, counts then.
    Verdict judge(std::optional<Look> look, Clock::time_point now) {
        lastLook_ = now;
        if (!look || look->movedBytes != std::exchange(movedBytes_, look->movedBytes)) lastProgress_ = now;
        if (look && look->answering && !answerBegan_) answerBegan_ = now;
        if (answerBegan_ && now - *answerBegan_ >= 2 * timeout_) return Verdict::answerTooLong;
        return now - lastProgress_ >= timeout_ ? Verdict::stalled : Verdict::goOn;
    }

    /// The latest time of the next look. Progress causes no event: the peer's acknowledgements have to be polled.
    Clock::time_point nextLook() const { return std::min(lastLook_ + timeout_ / 60, lastProgress_ + timeout_); }

private:
    Clock::duration timeout_;
    Clock::time_point lastLook_;
    std::uint64_t movedBytes_ = 0;
    Clock::time_point lastProgress_;
    std::optional<Clock::time_point> answerBegan_;
};

}  // namespace tarvex::platform
