#include <gio/gio.h>

#include <map>
#include <string_view>

#include "doctor/checks.h"
#include "platform/portal/portal_connection.h"
#include "platform/portal/video_devices.h"

namespace tarvex::tool {
namespace {

using namespace std::chrono_literals;
using platform::Variant;

constexpr auto patience = 5s;
constexpr const char* storeName = "org.freedesktop.impl.portal.PermissionStore";
constexpr const char* storePath = "/org/freedesktop/impl/portal/PermissionStore";

using Answers = std::map<std::string, std::string>;  ///< of each application, by its name

/// What the portal has stored about the camera; empty when it has never asked.
Answers storedAnswers(GDBusConnection& bus) {
    const Variant reply(g_dbus_connection_call_sync(&bus, storeName, storePath, storeName, "Lookup",
                                                    g_variant_new("(ss)", "devices", "camera"),
                                                    G_VARIANT_TYPE("(a{sas}v)"), G_DBUS_CALL_FLAGS_NONE,
                                                    std::chrono::milliseconds(patience).count(), nullptr, nullptr));
    Answers answers;
    if (!reply) return answers;
    GVariantIter* entries = nullptr;
    g_variant_get(reply.get(), "(a{sas}v)", &entries, nullptr);
    const char* application = nullptr;
    GVariantIter* values = nullptr;
    while (g_variant_iter_loop(entries, "{&sas}", &application, &values) != FALSE) {
        const char* value = nullptr;
        if (g_variant_iter_next(values, "&s", &value) != FALSE) answers[application] = value;
    }
    g_variant_iter_free(entries);
    return answers;
}

/// Where it has no dialog to ask with, the portal has no such interface.
bool hasCameraInterface(const platform::PortalConnection& connection) {
    const Variant reply(g_dbus_connection_call_sync(
        connection.bus(), connection.portal().c_str(), platform::PortalConnection::path,
        "org.freedesktop.DBus.Properties", "Get", g_variant_new("(ss)", "org.freedesktop.portal.Camera", "version"),
        G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE, std::chrono::milliseconds(patience).count(), nullptr, nullptr));
    return reply != nullptr;
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

Findings checkPortal(const Host& host) {
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
    if (connection.bus() == nullptr) return without("there is no session bus that answers");
    if (!connection.reachPortal(patience)) return without("there is none on the session bus");
    if (!hasCameraInterface(connection)) return without("it has no interface for the camera");
    Findings findings{good(what, "it answers on the session bus")};
    for (Finding& finding : answerFindings(host, storedAnswers(*connection.bus())))
        findings.push_back(std::move(finding));
    return findings;
}

}  // namespace tarvex::tool
