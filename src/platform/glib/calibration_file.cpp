#include "platform/glib/calibration_file.h"

#include <glib.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/shared/handle.h"

namespace tarvex::platform {
namespace {

using KeyFile = Handle<GKeyFile, g_key_file_unref>;
using Error = Handle<GError, g_error_free>;
using Text = Handle<char, g_free>;

constexpr double least = 0.2;
constexpr double most = 5;

/// A camera's own name, without the characters that an INI file's groups cannot hold.
std::string groupOf(std::string_view camera) {
    std::string group(camera);
    std::ranges::replace_if(group, [](char c) { return c == '[' || c == ']' || g_ascii_iscntrl(c) != FALSE; }, '_');
    if (g_utf8_validate(group.c_str(), -1, nullptr) == FALSE || group.empty()) return "camera";
    return group;
}

std::string keyOf(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

/// The file's content, empty where there is no file; one sentence when it cannot be read.
std::expected<KeyFile, std::string> load(const std::filesystem::path& path) {
    KeyFile file(g_key_file_new());
    GError* error = nullptr;
    if (g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_KEEP_COMMENTS, &error) != FALSE) return file;
    const Error reason(error);
    if (g_error_matches(reason.get(), G_FILE_ERROR, G_FILE_ERROR_NOENT) != FALSE) return file;
    return std::unexpected(path.string() + " cannot be read: " + reason->message);
}

/// Writes and syncs the file under another name, then renames it and syncs the directory.
std::expected<void, std::string> save(GKeyFile* file, const std::filesystem::path& path) {
    constexpr int everybodyReads = 0644;
    constexpr auto durably =
        // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): an enumeration of bits
        static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT | G_FILE_SET_CONTENTS_DURABLE);
    gsize size = 0;
    const Text text(g_key_file_to_data(file, &size, nullptr));
    GError* error = nullptr;
    if (g_file_set_contents_full(path.c_str(), text.get(), static_cast<gssize>(size), durably, everybodyReads,
                                 &error) != FALSE)
        return {};
    const Error reason(error);
    return std::unexpected(path.string() + " cannot be written: " + reason->message);
}

}  // namespace

bool canBeFactor(double number) {
    return number >= least && number <= most;
}

CalibrationFile::CalibrationFile() : path_(std::filesystem::path(g_get_user_config_dir()) / "tarvex" / "cameras.ini") {}

std::optional<double> CalibrationFile::factor(std::string_view camera, int width, int height) const {
    const auto file = load(path_);
    if (!file) return std::nullopt;
    GError* error = nullptr;
    const double factor =
        g_key_file_get_double(file->get(), groupOf(camera).c_str(), keyOf(width, height).c_str(), &error);
    const Error absentOrNoNumber(error);
    if (absentOrNoNumber || !canBeFactor(factor)) return std::nullopt;
    return factor;
}

std::expected<void, std::string> CalibrationFile::store(std::string_view camera, int width, int height,
                                                        double factor) const {
    std::error_code failure;
    std::filesystem::create_directories(path_.parent_path(), failure);
    const auto file = load(path_);
    if (!file) return std::unexpected(file.error());  // to write it anew would lose the other cameras' factors
    g_key_file_set_double(file->get(), groupOf(camera).c_str(), keyOf(width, height).c_str(), factor);
    return save(file->get(), path_);
}

}  // namespace tarvex::platform
