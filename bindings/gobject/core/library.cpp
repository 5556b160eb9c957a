#include "library.h"

#include <gio/gio.h>

#include <utility>

#include "main_loop.h"
#include "observed_object_store.h"
#include "tarvex-error.h"

#ifdef TARVEX_GLIB_WITH_CAMERA
#include "tarvex/camera.h"
#endif

namespace tarvex::glib {

namespace {

std::optional<std::string> idOfDefaultApplication() {
    GApplication* application = g_application_get_default();
    const char* id = application != nullptr ? g_application_get_application_id(application) : nullptr;
    return id != nullptr ? std::optional<std::string>(id) : std::nullopt;
}

void refuse(GError** error, TarvexHostError code, const std::string& text) {
    g_set_error_literal(error, TARVEX_HOST_ERROR, code, text.c_str());
}

}  // namespace

Library& Library::shared() {
    static Library& instance = *new Library;
    return instance;
}

std::optional<std::string> Library::setting(std::string_view name) const {
    const std::lock_guard lock(mutex_);
    return settingLocked(name);
}

std::optional<std::string> Library::settingLocked(std::string_view name) const {
    const auto found = settings_.find(name);
    return found != settings_.end() ? std::optional(found->second) : std::nullopt;
}

bool Library::set(std::string_view name, std::optional<std::string> value) {
    const std::lock_guard lock(mutex_);
    if (client_ != nullptr) return false;
    if (value && !value->empty())
        settings_.insert_or_assign(std::string(name), *std::move(value));
    else
        settings_.erase(std::string(name));
    return true;
}

bool Library::customize(Customization customization) {
    const std::lock_guard lock(mutex_);
    if (client_ != nullptr) return false;
    customizations_.push_back(std::move(customization));
    return true;
}

Client* Library::use(GError** error) {
    const std::lock_guard lock(mutex_);
    if (client_ == nullptr) return start(error);
    if (isStillTheApplication()) return client_;
    refuse(error, TARVEX_HOST_ERROR_OTHER_APPLICATION,
           "This process samples for the application " + applicationId_.value_or("") +
               ", and its default GApplication is another one now: a process has one.");
    return nullptr;
}

Client* Library::useOnMainThread(GError** error) {
    if (isOnMainThread()) return use(error);
    refuse(error, TARVEX_HOST_ERROR_WRONG_THREAD,
           "This belongs on the main thread, which is the first one that asked for the client.");
    return nullptr;
}

Client* Library::useOrComplain(const char* function) {
    GError* error = nullptr;
    Client* client = use(&error);
    if (client == nullptr) {
        g_critical("%s: %s", function, error->message);
        g_error_free(error);
    }
    return client;
}

Client* Library::inUse() const {
    const std::lock_guard lock(mutex_);
    return client_;
}

std::unique_ptr<platform::Platform> Library::makePlatform() const {
    auto identifier = settingLocked("application-id");
    return platform::Platform::makeLinux({.dataDirectory = settingLocked("data-directory"),
                                          .bundleDirectory = settingLocked("bundle-directory"),
                                          .sensorRoot = settingLocked("sensor-root"),
                                          .bundleIdentifier = identifier ? identifier : idOfDefaultApplication(),
                                          .applicationName = settingLocked("application-name"),
                                          .cameraUsageDescription = settingLocked("camera-usage-description")});
}

Client* Library::start(GError** error) {
    auto platform = makePlatform();
    const auto identifier = platform->bundles().mainBundle().bundleIdentifier();
    if (!identifier || identifier->empty()) {
        refuse(error, TARVEX_HOST_ERROR_NO_APPLICATION_ID,
               "This host has no name of its own: set the client's application-id, or make a GApplication with an "
               "identifier first. Nothing was stored.");
        return nullptr;
    }
#ifdef TARVEX_GLIB_WITH_CAMERA
    camera::addTo(*platform);
#endif
    for (const Customization& customization : customizations_)
        customization(*platform);
    platform->setObjectStore(std::make_unique<ObservedObjectStore>(platform->objectStore(), countChanged_));
    if (!platform::Platform::install(std::move(platform))) {
        refuse(error, TARVEX_HOST_ERROR_LIBRARY_IN_USE,
               "The library was used in this process before its settings were known.");
        return nullptr;
    }
    if (!settingLocked("application-id") && identifier == idOfDefaultApplication()) applicationId_ = identifier;
    customizations_.clear();
    client_ = &Client::shared();
    return client_;
}

/// Only the main thread may look at a GApplication.
bool Library::isStillTheApplication() const {
    if (!applicationId_ || !isOnMainThread()) return true;
    const auto id = idOfDefaultApplication();
    return !id || id == applicationId_;
}

}  // namespace tarvex::glib
