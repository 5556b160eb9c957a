// A small study with a window: asks for consent, shows the two signals, and shares what it stored.

#include <gtk/gtk.h>
#include <libintl.h>
#include <tarvex/camera.h>
#include <tarvex/gtk.h>
#include <tarvex/platform/platform.h>
#include <tarvex/testing/loopback_url_session.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include "light_player.h"
#include "photographs.h"
#include "study_window.h"

namespace gtk_host {

namespace {

using tarvex::platform::LinuxOptions;
using tarvex::platform::Platform;

struct Options {
    std::optional<std::filesystem::path> data;
    std::optional<std::filesystem::path> recording;
    std::optional<std::filesystem::path> pictures;
    std::optional<std::filesystem::path> collector;
};

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("Cannot read " + path.string() + ": is the collector running?");
    return {std::istreambuf_iterator<char>(file), {}};
}

Substitutes installPlatform(const Options& options, const light_player::LightPlayer* player) {
    LinuxOptions places{.dataDirectory = options.data};
    if (player != nullptr) places.sensorRoot = player->root();
    auto platform = Platform::makeLinux(std::move(places));
    tarvex::gtk::addTo(*platform);
    const auto camera = photographs::cameraOrPhotographs(options.pictures);
    tarvex::camera::addTo(*platform, camera);
    if (options.collector) {
        const auto port = static_cast<std::uint16_t>(std::stoi(contents(*options.collector / "port")));
        platform->setUrlSession(
            tarvex::testing::makeLoopbackUrlSession(port, contents(*options.collector / "certificate.pem")));
    }
    if (!Platform::install(std::move(platform)))
        throw std::runtime_error("Something used the library before its platform was installed.");
    return {.light = player != nullptr, .camera = std::holds_alternative<tarvex::camera::Pictures>(camera.source)};
}

std::filesystem::path ownResources() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "share";
}

void useTranslations() {
    bindtextdomain("gtk_host", (ownResources() / "locale").c_str());
    bind_textdomain_codeset("gtk_host", "UTF-8");
    textdomain("gtk_host");
}

void useIcon() {
    gtk_icon_theme_add_search_path(gtk_icon_theme_get_for_display(gdk_display_get_default()),
                                   (ownResources() / "icons").c_str());
}

int run(const Options& options) {
    std::unique_ptr<light_player::LightPlayer> player;
    if (options.recording)
        player = std::make_unique<light_player::LightPlayer>(*options.recording, std::chrono::minutes(2));
    useTranslations();
    if (gtk_init_check() == 0) {
        std::cerr << "There is no display to show a window on.\n";
        return 1;
    }
    useIcon();
    struct Study {
        Substitutes substitutes;
        std::shared_ptr<StudyWindow> window;
    } study{.substitutes = installPlatform(options, player.get()), .window = nullptr};
    GtkApplication* application = gtk_application_new("org.tarvex.GtkHost", G_APPLICATION_NON_UNIQUE);
    g_signal_connect(application, "activate", G_CALLBACK(+[](GtkApplication* self, Study* opened) {
                         if (!opened->window)
                             opened->window = StudyWindow::open(self, Platform::current(), opened->substitutes);
                         opened->window->present();
                     }),
                     &study);
    const int status = g_application_run(G_APPLICATION(application), 0, nullptr);
    study.window.reset();
    g_object_unref(application);
    return status;
}

}  // namespace

}  // namespace gtk_host

int main(int argc, char** argv) {
    gtk_host::Options options;
    CLI::App app("A small study of light and viewing distance, in a window.");
    app.add_option("--data", options.data, "Directory for samples and consent (the user's data directory)")
        ->option_text("DIRECTORY");
    app.add_option("--recording", options.recording, "Day of light to play instead of reading the light sensor")
        ->option_text("FILE");
    app.add_option("--pictures", options.pictures, "Photographs to show where the machine has no camera")
        ->option_text("DIRECTORY");
    app.add_option("--collector", options.collector,
                   "Directory of a running collector, which takes the research backend's place")
        ->option_text("DIRECTORY");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        return gtk_host::run(options);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
