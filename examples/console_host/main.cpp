// A host without a screen: asks for consent on the terminal, samples the ambient light and the
// distance of the eyes, and shares what it stored.

#include <tarvex/ambient_light_sensor.h>
#include <tarvex/camera.h>
#include <tarvex/client.h>
#include <tarvex/platform/platform.h>
#include <tarvex/testing/loopback_url_session.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "light_player.h"
#include "photographs.h"
#include "terminal_consent.h"

namespace console_host {

namespace {

using tarvex::Client;
using tarvex::DataReader;
using tarvex::platform::LinuxOptions;
using tarvex::platform::Platform;
using tarvex::platform::RunLoop;

struct Arguments {
    int seconds = 10;
    std::optional<std::filesystem::path> dataDirectory;
    std::optional<std::filesystem::path> recording;
    std::optional<std::filesystem::path> pictureDirectory;
    std::optional<std::filesystem::path> collectorDirectory;
};

const std::vector readers{DataReader::ambientLight(1), DataReader::distance(2)};

bool hasLightSensor() {
    const auto platform = Platform::makeLinux();
    const auto client = platform->hidEventSystem().createClient();
    client->setMatching({.primaryUsagePage = 0xFF00, .primaryUsage = 4});
    return !client->copyServices().empty();
}

std::unique_ptr<light_player::LightPlayer> playLightWhereThereIsNoSensor(const Arguments& arguments) {
    if (hasLightSensor()) {
        std::cout << "This machine has a light sensor: it is used.\n";
        return nullptr;
    }
    if (!arguments.recording) {
        std::cout << "This machine has no light sensor: every sample will read 0.\n";
        return nullptr;
    }
    std::cout << "This machine has no light sensor: a modelled day of light is played into a directory\n"
                 "shaped like the kernel's sensor tree, and read from there.\n";
    return std::make_unique<light_player::LightPlayer>(*arguments.recording, std::chrono::seconds(arguments.seconds));
}

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("Cannot read " + path.string() + ": is the collector running?");
    return {std::istreambuf_iterator<char>(file), {}};
}

void installPlatform(const Arguments& arguments, const light_player::LightPlayer* player) {
    LinuxOptions options{.dataDirectory = arguments.dataDirectory};
    if (player != nullptr) options.sensorRoot = player->root();
    auto platform = Platform::makeLinux(std::move(options));
    tarvex::camera::addTo(*platform, photographs::cameraOrPhotographs(arguments.pictureDirectory));
    if (const auto& collector = arguments.collectorDirectory) {
        const auto port = static_cast<std::uint16_t>(std::stoi(contents(*collector / "port")));
        platform->setUrlSession(
            tarvex::testing::makeLoopbackUrlSession(port, contents(*collector / "certificate.pem")));
    }
    if (!Platform::install(std::move(platform)))
        throw std::runtime_error("Something used the library before its platform was installed.");
}

void showProgress(int tenths, int seconds) {
    constexpr int width = 30;
    std::int32_t lux = 0;
    float channel = 0;
    tarvex::TXAmbientLightSensor::get_lux(&lux, &channel, &channel, &channel, &channel);
    const int filled = width * tenths / (seconds * 10);
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    if (!terminal && tenths % 10 != 0) return;
    std::cout << (terminal ? "\r  [" : "  [") << std::string(static_cast<std::size_t>(filled), '#')
              << std::string(static_cast<std::size_t>(width - filled), '.') << "] " << std::setw(3) << tenths / 10
              << " s   lux " << std::setw(6) << lux << "   records " << std::setw(4)
              << Client::shared().trackingDataCount() << (terminal ? "" : "\n") << std::flush;
}

/// Whether anything is sampled.
bool start() {
    Client::shared().startTracking(
        readers, tarvex::makeHeadlessView(), [](const Client::Result& result, const auto& reader) {
            if (result) return;
            std::cerr << reader->description() << ": " << result.error().errorDescription().value_or("") << '\n';
        });
    return std::ranges::any_of(Client::shared().trackingInProgress(), [](const auto& state) { return state.second; });
}

bool sample(int seconds) {
    if (!start()) return false;
    std::cout << "Sampling for " << seconds << " s: the ambient light every second, the distance every two seconds\n";
    int tenths = 0;
    const auto progress = Platform::current().timerScheduler().scheduledTimer(0.1, [&] {
        showProgress(++tenths, seconds);
        if (tenths >= seconds * 10) RunLoop::main().stop();
    });
    RunLoop::main().run();
    progress->invalidate();
    Client::shared().stopTracking();
    // A measurement that has begun is still stored.
    const auto rest = Platform::current().timerScheduler().scheduledTimer(1, [] { RunLoop::main().stop(); });
    RunLoop::main().run();
    rest->invalidate();
    std::cout << (isatty(STDOUT_FILENO) != 0 ? "\n" : "");
    return true;
}

bool share() {
    bool succeeded = false;
    std::cout << "Sharing, and deleting what was shared\n";
    Client::shared().shareTrackingData(true, [&succeeded](const Client::Result& result) {
        succeeded = result.has_value();
        if (!result) std::cerr << result.error().errorDescription().value_or("") << '\n';
        RunLoop::main().stop();
    });
    RunLoop::main().run();
    return succeeded;
}

int run(const Arguments& arguments) {
    const auto player = playLightWhereThereIsNoSensor(arguments);
    installPlatform(arguments, player.get());
    if (!askForConsent(RunLoop::main(), readers)) {
        std::cout << "No consent was given: nothing is sampled.\n"
                     "The desktop remembers a camera that was refused. To be asked again:\n"
                     "  gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore \\\n"
                     "    --object-path /org/freedesktop/impl/portal/PermissionStore \\\n"
                     "    --method org.freedesktop.impl.portal.PermissionStore.DeletePermission devices camera \"\"\n";
        return 0;
    }
    if (!sample(arguments.seconds)) return 1;
    std::cout << "Records stored: " << Client::shared().trackingDataCount() << '\n';
    const bool shared = share();
    std::cout << "Records stored: " << Client::shared().trackingDataCount() << '\n';
    return shared ? 0 : 1;
}

}  // namespace

}  // namespace console_host

int main(int argc, char** argv) {
    console_host::Arguments arguments;
    CLI::App app("Samples ambient light and viewing distance, and shares what it stored.");
    app.add_option("--seconds", arguments.seconds, "Duration of the sampling, 1 to 86400 (10)")
        ->option_text("NUMBER")
        ->check(CLI::Range(1, 24 * 60 * 60));
    app.add_option("--data", arguments.dataDirectory, "Directory for samples and consent (the user's data directory)")
        ->option_text("DIRECTORY");
    app.add_option("--recording", arguments.recording, "Day of light to play where the machine has no light sensor")
        ->option_text("FILE");
    app.add_option("--pictures", arguments.pictureDirectory, "Photographs to show where the machine has no camera")
        ->option_text("DIRECTORY");
    app.add_option("--collector", arguments.collectorDirectory,
                   "Directory of a running collector, which takes the research backend's place")
        ->option_text("DIRECTORY");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        return console_host::run(arguments);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
