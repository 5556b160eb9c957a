#include <gio/gio.h>

#include <map>
#include <optional>
#include <string_view>

#include "doctor/checks.h"
#include "platform/portal/portal_connection.h"
#include "platform/portal/video_devices.h"

namespace tarvex::tool {
namespace {

using Milliseconds = std::chrono::milliseconds;
using platform::Variant;

constexpr const char* storeName = "org.freedesktop.impl.portal.PermissionStore";
constexpr const char* storePath = "/org/freedesktop/impl/portal/PermissionStore";

using Answers = std::map<std::string, std::string>;  ///< of each application, by its name

/// The reply to a call; absent when there is none in time, null when it is an error.
std::optional<Variant> call(GDBusConnection& bus, Milliseconds patience, const char* name, const char* path,
                            const char* interface, const char* method, GVariant* arguments, const char* type) {
    platform::BusError error;
    Variant reply(g_dbus_connection_call_sync(&bus, name, path, interface, method, arguments, G_VARIANT_TYPE(type),
                                              G_DBUS_CALL_FLAGS_NONE, static_cast<int>(patience.count()), nullptr,
                                              &error.error));
    if (g_error_matches(error.error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != 0) return std::nullopt;
    return reply;
}

/// What the portal has stored about the camera; empty when it has never asked, absent when it does not say.
std::optional<Answers> storedAnswers(GDBusConnection& bus, Milliseconds patience) {
    const auto reply = call(bus, patience, storeName, storePath, storeName, "Lookup",
                            g_variant_new("(ss)", "devices", "camera"), "(a{sas}v)");
    if (!reply) return std::nullopt;
    Answers answers;
    if (!*reply) return answers;
    GVariantIter* entries = nullptr;
    g_variant_get(reply->get(), "(a{sas}v)", &entries, nullptr);
    const char* application = nullptr;
    GVariantIter* values = nullptr;
    while (g_variant_iter_loop(entries, "{&sas}", &application, &values) != FALSE) {
        const char* value = nullptr;
        if (g_variant_iter_next(values, "&s", &value) != FALSE) answers[application] = value;
    }
    g_variant_iter_free(entries);
    return answers;
}

/// Where it has no dialog to ask with, the portal has no such interface. Absent when it does not say.
std::optional<bool> hasCameraInterface(const platform::PortalConnection& connection, Milliseconds patience) {
    const auto reply = call(*connection.bus(), patience, connection.portal().c_str(), platform::PortalConnection::path,
                            "org.freedesktop.DBus.Properties", "Get",
                            g_variant_new("(ss)", "org.freedesktop.portal.Camera", "version"), "(v)");
    return reply ? std::optional(*reply != nullptr) : std::nullopt;
}

std::string askingAgain(const std::string& application) {
    return std::string("the next \"I consent\" asks again after:\ngdbus call --session --dest ") + storeName +
           " --object-path " + storePath + " --method " + storeName + ".DeletePermission devices camera '" +
           application + "'";
}

Findings answerFindings(const Host& host, const Answers& answers) {
    Findings findings;
    std::vector<std::string> names{""};  // outside a sandbox, of all that no desktop's menu has started
    if (const auto name = identifierOf(host).value_or(std::nullopt)) names.push_back(*name);
    for (const std::string& name : names) {
        const auto answer = answers.find(name);
        if (answer == answers.end()) continue;
        const std::string what = "portal's answer for " + (name.empty() ? "hosts without a name" : name);
        if (answer->second == "no")
            findings.push_back(
                bad(what, "the camera was refused, and the portal does not ask again", askingAgain(name)));
        else
            findings.push_back(good(what, "it is \"" + answer->second + "\""));
    }
    if (findings.empty()) findings.push_back(note("portal's answer", "none is stored: the consent screen asks"));
    return findings;
}

}  // namespace

Findings checkPortal(const Host& host, Milliseconds patience) {
    constexpr const char* what = "desktop portal";
    const platform::ThreadContext context;
    const platform::GObjectPointer<GCancellable> cancellable(g_cancellable_new());
    platform::PortalConnection connection(context, cancellable.get(), patience);
    const bool devicesAllow = platform::mayUseCamera("/dev");
    const std::string decision =
        devicesAllow ? "the video devices decide, and allow it" : "the video devices refuse it";
    const auto without = [&](const std::string& why) -> Findings {
        if (devicesAllow) return {note(what, why + ": " + decision)};
        return {bad(what, why + ": " + decision, "sudo usermod --append --groups video \"$USER\", and log in anew")};
    };
    if (connection.bus() == nullptr)
        return without("there is no session bus that answers (run this in the host's session, as its user)");
    if (!connection.reachPortal(patience)) return without("there is none on the session bus");
    const auto hasCamera = hasCameraInterface(connection, patience);
    if (!hasCamera)
        return {bad(what, "it is on the session bus and does not answer: the camera counts as refused",
                    "systemctl --user restart xdg-desktop-portal")};
    if (!*hasCamera) return without("it has no interface for the camera");
    Findings findings{good(what, "it answers on the session bus")};
    const auto answers = storedAnswers(*connection.bus(), patience);
    if (!answers) {
        findings.push_back(bad("portal's answer", "its store, which keeps the user's answer, does not reply",
                               "systemctl --user restart xdg-permission-store"));
        return findings;
    }
    for (Finding& finding : answerFindings(host, *answers))
        findings.push_back(std::move(finding));
    return findings;
}

}  // namespace tarvex::tool
