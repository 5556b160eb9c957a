#pragma once

#include <cstdint>
#include <utility>

namespace tarvex::gtk {

/// The rule by which a host's windows leave the foreground, apart from clocks and signals: it is shown what is to be
/// seen, and returns what that is evidence of.
class ForegroundRule {
public:
    /// Of the window that is seen best.
    enum class Presence : std::uint8_t {
        hidden,  ///< unmapped, minimised or suspended
        visible,
        active,
    };
    enum class Evidence : std::uint8_t {
        none,       ///< the host is in the foreground, or has left it already
        unfocused,  ///< no window is active although one was: counts once it has lasted
        hidden,     ///< counts at once
    };

    /// `hasKeyboard`: some seat has one. On Wayland no window is ever active without, which then means nothing.
    Evidence see(Presence presence, bool hasKeyboard) {
        const Presence before = std::exchange(presence_, presence);
        // A window that was shown without ever being active has not left the foreground for that.
        if (presence == Presence::active || (presence == Presence::visible && before == Presence::hidden))
            foreground_ = true;
        if (presence != Presence::visible) wasActive_ = presence == Presence::active;
        if (!foreground_) return Evidence::none;
        if (presence == Presence::hidden) return Evidence::hidden;
        return presence == Presence::visible && wasActive_ && hasKeyboard ? Evidence::unfocused : Evidence::none;
    }

    /// The evidence has counted: there is none before the host has been in the foreground again.
    void leave() { foreground_ = false; }

    bool isForeground() const { return foreground_; }

private:
    Presence presence_ = Presence::hidden;
    bool wasActive_ = false;
    bool foreground_ = false;
};

}  // namespace tarvex::gtk
