#pragma once

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

namespace light_player {

/// Plays a day of light into a directory that is shaped like the kernel's tree of sensors, so that the library's real
/// reader has something to read on a machine without a sensor. The directory is removed at the end.
class LightPlayer {
public:
    /// Plays the lines of `recording` evenly within `length`, from now on. Throws where it cannot be read or played.
    LightPlayer(const std::filesystem::path& recording, std::chrono::milliseconds length);
    ~LightPlayer();
    LightPlayer(const LightPlayer&) = delete;
    LightPlayer& operator=(const LightPlayer&) = delete;

    /// The root of the tree, for `LinuxOptions::sensorRoot`.
    const std::filesystem::path& root() const { return root_; }

private:
    struct Moment {
        double lux;
        int red;
        int green;
        int blue;
        int clear;
    };

    static std::vector<Moment> read(const std::filesystem::path& recording);
    [[nodiscard]] bool show(const Moment& moment) const;  // false when a value cannot be written: it stays as it was
    void play(const std::stop_token& stop, std::chrono::milliseconds length) const;

    std::vector<Moment> moments_;
    std::filesystem::path root_;
    std::jthread thread_;
};

}  // namespace light_player
