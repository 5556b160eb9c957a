#include "platform/camera/calibration_file.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <system_error>
#include <utility>

namespace tarvex::camera {
namespace {

struct Release {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
    void operator()(GError* error) const { g_error_free(error); }
};
using KeyFile = std::unique_ptr<GKeyFile, Release>;
using Error = std::unique_ptr<GError, Release>;

constexpr double least = 0.2;
constexpr double most = 5;

/// A camera's own name, without what an INI file's groups cannot hold.
std::string groupOf(std::string_view camera) {
    std::string group(camera);
    std::ranges::replace_if(group, [](char c) { return c == '[' || c == ']' || g_ascii_iscntrl(c) != FALSE; }, '_');
    if (g_utf8_validate(group.c_str(), -1, nullptr) == FALSE || group.empty()) return "camera";
    return group;
}

std::string keyOf(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

KeyFile load(const std::filesystem::path& path) {
    KeyFile file(g_key_file_new());
    GError* error = nullptr;
    g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_KEEP_COMMENTS, &error);
    const Error absentOrDamaged(error);  // either way it holds no factor
    return file;
}

}  // namespace

bool canBeFactor(double number) {
    return number >= least && number <= most;
}

CalibrationFile::CalibrationFile() : path_(std::filesystem::path(g_get_user_config_dir()) / "tarvex" / "cameras.ini") {}

std::optional<double> CalibrationFile::factor(std::string_view camera, int width, int height) const {
    const KeyFile file = load(path_);
    GError* error = nullptr;
    const double factor =
        g_key_file_get_double(file.get(), groupOf(camera).c_str(), keyOf(width, height).c_str(), &error);
    const Error absentOrNoNumber(error);
    if (absentOrNoNumber || !canBeFactor(factor)) return std::nullopt;
    return factor;
}

std::expected<void, std::string> CalibrationFile::store(std::string_view camera, int width, int height,
                                                        double factor) const {
    std::error_code failure;
    std::filesystem::create_directories(path_.parent_path(), failure);
    const KeyFile file = load(path_);
    g_key_file_set_double(file.get(), groupOf(camera).c_str(), keyOf(width, height).c_str(), factor);
    GError* error = nullptr;
    if (g_key_file_save_to_file(file.get(), path_.c_str(), &error) != FALSE) return {};
    const Error reason(error);
    return std::unexpected(path_.string() + " cannot be written: " + reason->message);
}

}  // namespace tarvex::camera
