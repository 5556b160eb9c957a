#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

namespace tarvex::platform {

/// Decides when a transfer has to be ended from this side: nothing has moved for its time-out, noticed at most a
/// sixtieth of it late, or its answer goes on for twice the time-out.
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

    /// No look before the connection stands: curl's own connect time-out, which names what took too long, counts then.
    Verdict judge(std::optional<Look> look, Clock::time_point now) {
        lastLook_ = now;
        if (!look || look->movedBytes != std::exchange(movedBytes_, look->movedBytes)) lastProgress_ = now;
        if (look && look->answering && !answerBegan_) answerBegan_ = now;
        if (answerBegan_ && now - *answerBegan_ >= 2 * timeout_) return Verdict::answerTooLong;
        return now - lastProgress_ >= timeout_ ? Verdict::stalled : Verdict::goOn;
    }

    /// The latest time of the next look. Progress has no event: the peer's acknowledgements have to be asked for.
    Clock::time_point nextLook() const { return std::min(lastLook_ + timeout_ / 60, lastProgress_ + timeout_); }

private:
    Clock::duration timeout_;
    Clock::time_point lastLook_;
    std::uint64_t movedBytes_ = 0;
    Clock::time_point lastProgress_;
    std::optional<Clock::time_point> answerBegan_;
};

}  // namespace tarvex::platform
