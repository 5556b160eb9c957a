#pragma once

#include <cstdint>
#include <utility>

namespace tarvex::gtk {

/// The rule by which a host's windows leave the foreground, without clocks and signals: `see` takes one observation and
/// returns the evidence in it.
class ForegroundRule {
public:
    /// Presence of the most visible window.
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

    /// `hasKeyboard`: a seat has one. Without a keyboard no window is ever active on Wayland: no evidence.
    Evidence see(Presence presence, bool hasKeyboard) {
        const Presence before = std::exchange(presence_, presence);
        // A window that is shown without ever being active is in the foreground.
        if (presence == Presence::active || (presence == Presence::visible && before == Presence::hidden))
            foreground_ = true;
        if (presence != Presence::visible) wasActive_ = presence == Presence::active;
        if (!foreground_) return Evidence::none;
        if (presence == Presence::hidden) return Evidence::hidden;
        return presence == Presence::visible && wasActive_ && hasKeyboard ? Evidence::unfocused : Evidence::none;
    }

    /// Uses the evidence up: there is none until the host has been in the foreground again.
    void leave() { foreground_ = false; }

    bool isForeground() const { return foreground_; }

private:
    Presence presence_ = Presence::hidden;
    bool wasActive_ = false;
    bool foreground_ = false;
};

}  // namespace tarvex::gtk
