#pragma once

#include <glib.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/client.h"
#include "tarvex/platform/platform.h"

namespace tarvex::glib {

/// The library as hosts of this layer see it: settings until the first use, then the facade. Thread-safe.
class Library {
public:
    using Customization = std::function<void(platform::Platform&)>;

    /// Never destroyed, like the facade.
    static Library& shared();

    /// The setting of this name (those of `TarvexClient`'s properties); absent when it was not set.
    std::optional<std::string> setting(std::string_view name) const;
    /// Absent or empty takes the setting back. False, and nothing changed, once the library is in use.
    bool set(std::string_view name, std::optional<std::string> value);

    /// Lets `customization` change the platform before it is installed, in the order of the calls. False, and nothing
    /// changed, once the library is in use.
    bool customize(Customization customization);

    /// Called on any thread after each change of the number of stored samples. To be set before the first use.
    void onCountChanged(std::function<void()> changed) { countChanged_ = std::move(changed); }

    /// The facade; the first call takes up the settings and installs the platform. Null, with `error` set and nothing
    /// stored, where the host has to mend something first.
    Client* use(GError** error);
    /// The same for what belongs on the main thread.
    Client* useOnMainThread(GError** error);
    /// The facade for the function of this name, which reports no error: a critical message says what `use` would.
    Client* useOrComplain(const char* function);
    /// The facade when it is in use, else null.
    Client* inUse() const;

private:
    Library() = default;

    std::optional<std::string> settingLocked(std::string_view name) const;
    std::unique_ptr<platform::Platform> makePlatform() const;
    Client* start(GError** error);
    bool isStillTheApplication() const;

    mutable std::mutex mutex_;
    std::map<std::string, std::string, std::less<>> settings_;
    std::vector<Customization> customizations_;
    std::function<void()> countChanged_;
    std::optional<std::string> applicationId_;  // of the GApplication whose name is in use
    Client* client_ = nullptr;
};

}  // namespace tarvex::glib
