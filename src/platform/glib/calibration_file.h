#pragma once

#include <expected>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tarvex::platform {

/// The factors that this user's cameras were calibrated to, one for each camera and frame size: an INI file, a group
/// for each camera. Thread-safe; of two processes that store at once, one may lose its factor.
class CalibrationFile {
public:
    /// `$XDG_CONFIG_HOME/tarvex/cameras.ini`.
    CalibrationFile();
    explicit CalibrationFile(std::filesystem::path path) : path_(std::move(path)) {}

    const std::filesystem::path& path() const { return path_; }

    /// The stored factor; absent where there is none, or a number that cannot be one.
    std::optional<double> factor(std::string_view camera, int width, int height) const;

    /// Durable when this returns; one sentence, and nothing changed, when the file could not be read or written.
    std::expected<void, std::string> store(std::string_view camera, int width, int height, double factor) const;

private:
    std::filesystem::path path_;
};

/// True for a number that can correct a camera: wrong defaults shift distances by some ten percent, not manyfold.
bool canBeFactor(double number);

}  // namespace tarvex::platform
