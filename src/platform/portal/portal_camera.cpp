#include "platform/portal/portal_camera.h"

#include <gio/gunixfdlist.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>

#include "platform/portal/portal_connection.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;

constexpr const char* cameraInterface = "org.freedesktop.portal.Camera";

bool isInSandbox() {
    std::error_code failure;
    return std::filesystem::exists("/.flatpak-info", failure) || std::getenv("SNAP") != nullptr;
}

/// One conversation with the portal about cameras, all of it within its time limit.
class CameraConversation {
public:
    // NOLINTBEGIN(clang-analyzer-optin.cplusplus.UninitializedObject): a constructor in another file fills it
    explicit CameraConversation(std::chrono::milliseconds limit)
        : end_(std::chrono::steady_clock::now() + limit), connection_(context_, cancellable_.get(), limit) {}
    // NOLINTEND(clang-analyzer-optin.cplusplus.UninitializedObject)

    bool reachPortal() { return connection_.reachPortal(std::nullopt); }
    bool startPortal() { return connection_.reachPortal(left()); }

    std::chrono::milliseconds left() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
        return std::max(left, std::chrono::milliseconds(1));
    }

    bool hasCamera() const {
        const Variant reply(g_dbus_connection_call_sync(
            connection_.bus(), connection_.portal().c_str(), PortalConnection::path, "org.freedesktop.DBus.Properties",
            "Get", g_variant_new("(ss)", cameraInterface, "IsCameraPresent"), G_VARIANT_TYPE("(v)"),
            G_DBUS_CALL_FLAGS_NONE, inMilliseconds(left()), cancellable_.get(), nullptr));
        if (!reply) return false;
        GVariant* value = nullptr;
        g_variant_get(reply.get(), "(v)", &value);
        const Variant present(value);
        return g_variant_is_of_type(present.get(), G_VARIANT_TYPE_BOOLEAN) != 0 &&
               g_variant_get_boolean(present.get()) != 0;
    }

    /// A portal that has just been started learns of the cameras soon.
    bool hasCameraSoon() const {
        while (!hasCamera()) {
            if (left() < 50ms) return false;
            std::this_thread::sleep_for(20ms);
        }
        return true;
    }

    /// Absent with the error.
    std::optional<FileDescriptor> openRemote(BusError& error) const {
        GVariantBuilder options;
        g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
        GUnixFDList* received = nullptr;
        const Variant reply(g_dbus_connection_call_with_unix_fd_list_sync(
            connection_.bus(), connection_.portal().c_str(), PortalConnection::path, cameraInterface,
            "OpenPipeWireRemote", g_variant_new("(a{sv})", &options), G_VARIANT_TYPE("(h)"), G_DBUS_CALL_FLAGS_NONE,
            inMilliseconds(left()), nullptr, &received, cancellable_.get(), &error.error));
        const GObjectPointer<GUnixFDList> descriptors(received);
        if (!reply || !descriptors) return std::nullopt;
        int place = 0;
        g_variant_get(reply.get(), "(h)", &place);
        const int number = g_unix_fd_list_get(descriptors.get(), place, &error.error);
        if (number < 0) return std::nullopt;
        return std::optional<FileDescriptor>(std::in_place, number);
    }

private:
    static int inMilliseconds(std::chrono::milliseconds time) { return static_cast<int>(time.count()); }

    std::chrono::steady_clock::time_point end_;
    ThreadContext context_;
    GObjectPointer<GCancellable> cancellable_{g_cancellable_new()};
    PortalConnection connection_;
};

bool isRefusal(const BusError& error) {
    if (error.error == nullptr || g_dbus_error_is_remote_error(error.error) == 0) return false;
    const Handle<char, g_free> name(g_dbus_error_get_remote_error(error.error));
    return name && std::string_view(name.get()) == "org.freedesktop.portal.Error.NotAllowed";
}

}  // namespace

bool mayPortalHaveCamera(std::chrono::milliseconds limit) {
    CameraConversation conversation(limit);
    return conversation.reachPortal() ? conversation.hasCamera() : isInSandbox();
}

std::expected<std::optional<FileDescriptor>, std::string> openPortalCameras(std::chrono::milliseconds limit) {
    CameraConversation conversation(limit);
    const bool isThere = conversation.reachPortal() ? conversation.hasCamera()
                                                    : conversation.startPortal() && conversation.hasCameraSoon();
    if (!isThere) return std::nullopt;
    BusError error;
    auto remote = conversation.openRemote(error);
    if (!remote && isRefusal(error))
        return std::unexpected("the desktop does not let this host use the camera (see its privacy settings)");
    return remote;
}

}  // namespace tarvex::platform
