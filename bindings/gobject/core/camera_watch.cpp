#include "camera_watch.h"

#include <gio/gio.h>

#include <deque>
#include <utility>

#include "main_loop.h"

namespace tarvex::glib {

namespace {

struct CameraWatch {
    GFileMonitor* monitor;
    std::function<void()> changed;
    bool isWaiting = false;
};

bool isCamera(GFile* node) {
    char* name = g_file_get_basename(node);
    const bool isVideo = name != nullptr && g_str_has_prefix(name, "video") != FALSE;
    g_free(name);
    return isVideo;
}

void nodeChanged(GFileMonitor* /*monitor*/, GFile* node, GFile* /*other*/, GFileMonitorEvent event,
                 CameraWatch* watch) {
    const bool matters = event == G_FILE_MONITOR_EVENT_CREATED || event == G_FILE_MONITOR_EVENT_DELETED ||
                         event == G_FILE_MONITOR_EVENT_ATTRIBUTE_CHANGED;
    if (!matters || watch->isWaiting || !isCamera(node)) return;
    watch->isWaiting = true;
    g_timeout_add_once(
        1000,
        [](gpointer data) {
            auto& over = *static_cast<CameraWatch*>(data);
            over.isWaiting = false;
            over.changed();
        },
        watch);
}

}  // namespace

void watchCameras(const std::string& devices, std::function<void()> changed) {
    performIn(nullptr, [devices, changed = std::move(changed)] {
        GFile* directory = g_file_new_for_path(devices.c_str());
        GFileMonitor* monitor = g_file_monitor_directory(directory, G_FILE_MONITOR_NONE, nullptr, nullptr);
        g_object_unref(directory);
        if (monitor == nullptr) return;
        static auto& watches = *new std::deque<CameraWatch>;
        g_signal_connect(monitor, "changed", G_CALLBACK(nodeChanged), &watches.emplace_back(monitor, changed));
    });
}

}  // namespace tarvex::glib
