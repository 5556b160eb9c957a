#include "main_loop.h"

#include <atomic>
#include <thread>
#include <utility>

namespace tarvex::glib {

namespace {

std::atomic<std::thread::id> mainThread;

}  // namespace

void performIn(GMainContext* context, std::function<void()> block) {
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_static_name(source, "tarvex");
    // noexcept: an exception must not travel through GLib's frames.
    const auto run = [](gpointer data) noexcept -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
    };
    g_source_set_callback(source, run, new std::function<void()>(std::move(block)),
                          [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    g_source_attach(source, context);
    g_source_unref(source);
}

bool isOnMainThread() {
    return mainThread.load() == std::this_thread::get_id();
}

void claimMainThread() {
    std::thread::id nobody;
    mainThread.compare_exchange_strong(nobody, std::this_thread::get_id());
}

}  // namespace tarvex::glib
