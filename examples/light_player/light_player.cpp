#include "light_player.h"

#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <tuple>

namespace light_player {

namespace {

namespace fs = std::filesystem;

fs::path makeTemporaryDirectory() {
    std::string name = fs::temp_directory_path() / "light-player-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("There is no room for a temporary directory in " + fs::temp_directory_path().string());
    return name;
}

// Readers see the old value or the new one, never half of it. False, and the old one stays, when it cannot be written.
template <typename Value>
bool writeAttribute(const fs::path& path, Value value) {
    const fs::path unfinished = path.string() + "~";
    std::ofstream file(unfinished);
    file << value << '\n';
    file.close();
    std::error_code failure;
    if (file) fs::rename(unfinished, path, failure);
    return file && !failure;
}

}  // namespace

LightPlayer::LightPlayer(const fs::path& recording, std::chrono::milliseconds length)
    : moments_(read(recording)), root_(makeTemporaryDirectory()) {
    fs::create_directory(root_ / "iio:device0");
    if (!writeAttribute(root_ / "iio:device0/name", "light-player") || !show(moments_.front()))
        throw std::runtime_error("There is no room to play light in " + root_.string());
    thread_ = std::jthread([this, length](const std::stop_token& stop) { play(stop, length); });
}

LightPlayer::~LightPlayer() {
    thread_.request_stop();
    thread_.join();
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

std::vector<LightPlayer::Moment> LightPlayer::read(const fs::path& recording) {
    std::ifstream file(recording);
    std::vector<Moment> moments;
    for (std::string line; std::getline(file, line);) {
        double hour = 0;
        Moment moment{};
        if (!line.starts_with('#') &&
            std::istringstream(line) >> hour >> moment.lux >> moment.red >> moment.green >> moment.blue >> moment.clear)
            moments.push_back(moment);
    }
    if (moments.empty()) throw std::runtime_error("There is no light to play in " + recording.string());
    return moments;
}

bool LightPlayer::show(const Moment& moment) const {
    const fs::path device = root_ / "iio:device0";
    return writeAttribute(device / "in_illuminance_input", moment.lux) &&
           writeAttribute(device / "in_intensity_red_raw", moment.red) &&
           writeAttribute(device / "in_intensity_green_raw", moment.green) &&
           writeAttribute(device / "in_intensity_blue_raw", moment.blue) &&
           writeAttribute(device / "in_intensity_clear_raw", moment.clear);
}

void LightPlayer::play(const std::stop_token& stop, std::chrono::milliseconds length) const {
    std::mutex mutex;
    std::condition_variable_any stopped;
    std::unique_lock lock(mutex);
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < moments_.size() && !stop.stop_requested(); ++i) {
        std::ignore = show(moments_[i]);
        stopped.wait_until(lock, stop, begin + length * (i + 1) / moments_.size(), [] { return false; });
    }
}

}  // namespace light_player
