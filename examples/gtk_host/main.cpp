// A small study with a window: asks for consent, shows the two signals, and shares what it stored.

#include <gtk/gtk.h>
#include <libintl.h>
#include <tarvex/camera.h>
#include <tarvex/gtk.h>
#include <tarvex/platform/platform.h>
#include <tarvex/testing/loopback_url_session.h>

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

#include "light_player.h"
#include "photographs.h"
#include "study_window.h"

namespace gtk_host {

namespace {

using tarvex::platform::LinuxOptions;
using tarvex::platform::Platform;

struct Options {
    std::optional<std::string> data;
    std::optional<std::string> recording;
    std::optional<std::string> pictures;
    std::optional<std::string> collector;

    static Options parse(int argc, char** argv) {
        char* data = nullptr;
        char* recording = nullptr;
        char* pictures = nullptr;
        char* collector = nullptr;
        const GOptionEntry entries[] = {
            {"data", 0, 0, G_OPTION_ARG_FILENAME, static_cast<void*>(&data), "Where samples and consent are kept",
             "DIRECTORY"},
            {"recording", 0, 0, G_OPTION_ARG_FILENAME, static_cast<void*>(&recording),
             "A day of light to play instead of the sensor", "FILE"},
            {"pictures", 0, 0, G_OPTION_ARG_FILENAME, static_cast<void*>(&pictures),
             "Photographs of faces to look at where there is no camera", "DIRECTORY"},
            {"collector", 0, 0, G_OPTION_ARG_FILENAME, static_cast<void*>(&collector),
             "Post to the collector on this machine that runs on that directory", "DIRECTORY"},
            {}};
        GOptionContext* context = g_option_context_new("– a small study of light and viewing distance");
        g_option_context_add_main_entries(context, entries, nullptr);
        GError* error = nullptr;
        const bool parsed = g_option_context_parse(context, &argc, &argv, &error) != 0;
        g_option_context_free(context);
        if (!parsed) throw std::runtime_error(error->message);
        return {.data = taken(data),
                .recording = taken(recording),
                .pictures = taken(pictures),
                .collector = taken(collector)};
    }

private:
    static std::optional<std::string> taken(char* text) {
        if (text == nullptr) return std::nullopt;
        std::string words = text;
        g_free(text);
        return words;
    }
};

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("Cannot read " + path.string() + ": is the collector running?");
    return {std::istreambuf_iterator<char>(file), {}};
}

void installPlatform(const Options& options, const light_player::LightPlayer* player) {
    LinuxOptions places;
    if (options.data) places.dataDirectory = *options.data;
    if (player != nullptr) places.sensorRoot = player->root();
    auto platform = Platform::makeLinux(std::move(places));
    tarvex::gtk::addTo(*platform);
    tarvex::camera::addTo(*platform, photographs::cameraOrPhotographs(options.pictures));
    if (options.collector) {
        const std::filesystem::path directory = *options.collector;
        const auto port = static_cast<std::uint16_t>(std::stoi(contents(directory / "port")));
        platform->setUrlSession(tarvex::testing::makeLoopbackUrlSession(port, contents(directory / "certificate.pem")));
    }
    if (!Platform::install(std::move(platform)))
        throw std::runtime_error("Something used the library before its platform was installed.");
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

int run(int argc, char** argv) {
    const Options options = Options::parse(argc, argv);
    std::unique_ptr<light_player::LightPlayer> player;
    if (options.recording)
        player = std::make_unique<light_player::LightPlayer>(*options.recording, std::chrono::minutes(2));
    useTranslations();
    if (gtk_init_check() == 0) {
        std::cerr << "There is no display to show a window on.\n";
        return 1;
    }
    useIcon();
    installPlatform(options, player.get());

    std::shared_ptr<StudyWindow> window;
    GtkApplication* application = gtk_application_new("org.tarvex.GtkHost", G_APPLICATION_NON_UNIQUE);
    g_signal_connect(application, "activate",
                     G_CALLBACK(+[](GtkApplication* self, std::shared_ptr<StudyWindow>* opened) {
                         if (!*opened) *opened = StudyWindow::open(self, Platform::current());
                         (*opened)->present();
                     }),
                     &window);
    const int status = g_application_run(G_APPLICATION(application), 0, nullptr);
    window.reset();
    g_object_unref(application);
    return status;
}

}  // namespace

}  // namespace gtk_host

int main(int argc, char** argv) {
    try {
        return gtk_host::run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
