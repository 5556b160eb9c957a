// Every finding of the doctor, provoked.

#include <gio/gio.h>

#include "child_process.h"
#include "doctor/checks.h"
#include "findings.h"
#include "platform/curl/scripted_tls_server.h"
#include "platform/sqlite/sample_store.h"
#include "platform/sqlite/sqlite_user_defaults.h"
#include "prelude.h"
#include "session_bus.h"

namespace tarvex::tool {
namespace {

namespace fs = std::filesystem;

/// A portal and its store of answers, on the test's session bus.
class SimulatedPortal {
public:
    /// `silence`: the method that it never answers.
    explicit SimulatedPortal(const char* answer, bool hasCamera = true, std::string_view silence = "")
        : answer_(answer), hasCamera_(hasCamera), silence_(silence) {
        g_dbus_connection_add_filter(bus_, receive, this, nullptr);
        for (const char* name : {"org.freedesktop.portal.Desktop", "org.freedesktop.impl.portal.PermissionStore"})
            bus_.own(name);
    }

private:
    static GDBusMessage* receive(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, gpointer self) {
        const char* member = g_dbus_message_get_member(message);
        const std::string_view method = member != nullptr ? member : "";
        if (incoming == FALSE || (method != "Lookup" && method != "Get")) return message;
        const auto* portal = static_cast<const SimulatedPortal*>(self);
        if (method == portal->silence_) {
            g_object_unref(message);
            return nullptr;
        }
        GDBusMessage* reply = nullptr;
        if (method == "Get" && portal->hasCamera_) {
            reply = g_dbus_message_new_method_reply(message);
            g_dbus_message_set_body(reply, g_variant_new("(v)", g_variant_new_uint32(1)));
        } else if (method == "Get" || portal->answer_ == nullptr) {
            reply = g_dbus_message_new_method_error_literal(message, "org.freedesktop.portal.Error.NotFound", "none");
        } else {
            const std::string text =
                std::string("({'': ['") + portal->answer_ + "'], 'org.example.study': ['yes']}, <0>)";
            reply = g_dbus_message_new_method_reply(message);
            g_dbus_message_set_body(
                reply, g_variant_parse(G_VARIANT_TYPE("(a{sas}v)"), text.c_str(), nullptr, nullptr, nullptr));
        }
        g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        g_object_unref(reply);
        g_object_unref(message);
        return nullptr;
    }

    const char* answer_;
    const bool hasCamera_;
    const std::string_view silence_;
    const test::BusConnection bus_;
};

constexpr const char* host = "backend.example.org";

Findings backend(const test::SelfSignedCertificate& certificate, std::uint16_t port, const char* name = host,
                 const std::string& trusted = "") {
    return checkBackend({.host = name,
                         .transport = {.trustedCertificatesPem = trusted.empty() ? certificate.pem() : trusted,
                                       .connectTo = {{name, 443, "127.0.0.1", port}}},
                         .limit = 3s});
}

}  // namespace

TEST(Doctor, ShakesHandsWithTheBackendAndSaysWhatIsWrongWithIt) {
    std::atomic<int> received = 0;
    const auto listens = [&](test::TlsConnection& connection) { received += !connection.read(1).empty(); };
    const test::SelfSignedCertificate lasting(host, {.until = std::chrono::days(100) + 1h});
    {
        const test::ScriptedTlsServer server(lasting, listens);
        const auto findings = backend(lasting, server.port());
        EXPECT_THAT(findings, SizeIs(3));
        EXPECT_THAT(found(findings, "backend's certificate"), HasSubstr("good: it is trusted, for 100 more days"));
        EXPECT_TRUE(eventually([&] { return server.clients() == 1; }));
        EXPECT_THAT(found(backend(lasting, server.port(), host, test::SelfSignedCertificate(host).pem()),
                          "backend's certificate"),
                    HasSubstr("bad: SSL certificate problem"));
        EXPECT_THAT(found(backend(lasting, server.port(), "elsewhere.example.org"), "backend's certificate"),
                    HasSubstr("bad: SSL: no alternative certificate subject name matches"));
    }
    EXPECT_EQ(received, 0) << "it posts nothing";
    const test::SelfSignedCertificate ending(host, {.until = std::chrono::days(3) + 1h});
    const test::ScriptedTlsServer soon(ending, listens);
    EXPECT_THAT(found(backend(ending, soon.port()), "backend's certificate"),
                HasSubstr("note: it is trusted, for 3 more"));
    const test::SelfSignedCertificate early(host, {.from = 1h, .until = 2h});  // or this device's clock is slow
    const test::ScriptedTlsServer soonValid(early, listens);
    EXPECT_THAT(found(backend(early, soonValid.port()), "backend's certificate"),
                HasSubstr("not yet valid | is this device's date right (timedatectl)"));
    const test::SelfSignedCertificate ended(host, {.from = -2h, .until = -1h});
    const test::ScriptedTlsServer late(ended, listens);
    EXPECT_THAT(found(backend(ended, late.port()), "backend's certificate"), HasSubstr("expired"));
    const test::ScriptedTlsServer silent(lasting, listens, test::ScriptedTlsServer::Kind::silent);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(found(backend(lasting, silent.port()), "connection to the backend"), HasSubstr("bad: "));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_THAT(found(backend(lasting, 1), "connection to the backend"), HasSubstr("bad: Failed to connect"));
    EXPECT_THAT(found(checkBackend({.host = "backend.invalid"}), "backend's name"), HasSubstr("bad: "));
}

TEST(Doctor, ReadsEveryAttributeOfTheLightSensors) {
    const TemporaryDirectory root;
    EXPECT_THAT(found(checkLightSensors(root.path()), "light sensor"), HasSubstr("bad: there is none"));
    const auto write = [&](const std::string& file, const char* text) { writeFile(root.path() / file, text); };
    write("iio:device0/name", "als\n");
    write("iio:device0/in_illuminance_raw", "12\n");
    write("iio:device0/in_illuminance_scale", "0.5\n");
    write("iio:device1/in_intensity_clear_raw", "7\n");
    write("iio:device2/in_illuminance_input", "Input/output error\n");
    fs::create_directories(root.path() / "iio:device3" / "in_illuminance_input");
    write("iio:device4/in_accel_x_raw", "3\n");
    const auto findings = checkLightSensors(root.path());
    EXPECT_THAT(findings, SizeIs(4));
    EXPECT_THAT(found(findings, "light sensor iio:device0 (als)"),
                HasSubstr("good: lux 6; in_illuminance_raw 12, in_illuminance_scale 0.5 |"));
    EXPECT_THAT(found(findings, "light sensor iio:device1"), HasSubstr("lux is always 0; in_intensity_clear_raw 7"));
    EXPECT_THAT(found(findings, "light sensor iio:device2"), HasSubstr("bad: in_illuminance_input reads \"Input"));
    EXPECT_THAT(found(findings, "light sensor iio:device3"), HasSubstr("bad: in_illuminance_input cannot be read"));
}

TEST(Doctor, LooksAtCamerasModelsElementsAndTheMainLoop) {
    const TemporaryDirectory directory;
    EXPECT_THAT(found(checkVideoDevices(directory.path()), "video device"), HasSubstr("bad: there is none"));
    writeFile(directory.path() / "video0", "");
    EXPECT_THAT(found(checkVideoDevices(directory.path()), "video device"), HasSubstr("good: "));
    if (::geteuid() == 0) {
        fs::permissions(directory.path(), fs::perms(0755));
        test::ChildProcess nobody([&](int) {
            const bool became = ::setuid(65534) == 0;
            return became && !areAllGood(checkVideoDevices(directory.path())) ? 0 : 1;
        });
        EXPECT_EQ(nobody.wait(), 0);
    }
    EXPECT_THAT(checkElements(), SizeIs(6));
    EXPECT_TRUE(areAllGood(checkElements()));
    EXPECT_THAT(found(checkFaceModels(directory.path()), "model face_mesh"), HasSubstr("cannot be read"));
    EXPECT_TRUE(areAllGood(checkFaceModels(TARVEX_FACE_MODELS)));
    writeFile(directory.path() / "face_mesh.tflite", "another");
    EXPECT_THAT(found(checkFaceModels(directory.path()), "model face_mesh"), HasSubstr("is not the model"));

    EXPECT_THAT(found(checkMainLoop(std::nullopt, directory.path()), "main loop"), HasSubstr("note: no host"));
    writeFile(directory.path() / "7" / "environ", std::string("A=1\0QT_NO_GLIB=1\0", 17));
    EXPECT_THAT(found(checkMainLoop(7, directory.path()), "main loop"), HasSubstr("bad: process 7"));
    writeFile(directory.path() / "7" / "environ", std::string("A=1\0NO_QT_NO_GLIB=1\0", 20));
    EXPECT_THAT(found(checkMainLoop(7, directory.path()), "main loop"), HasSubstr("note: process 7"));
}

TEST(Doctor, AsksThePortalForItsStoredAnswerAndSaysHowItAsksAgain) {
    const Host study{.identifier = "org.example.study"};
    EXPECT_THAT(found(checkPortal(study), "desktop portal"), HasSubstr("note: there is no session bus"));
    const test::SessionBus bus;
    EXPECT_THAT(found(checkPortal(study), "desktop portal"), HasSubstr("note: there is none on the session bus"));
    {
        const SimulatedPortal portal(nullptr);
        EXPECT_THAT(found(checkPortal(study), "portal's answer"), HasSubstr("note: none is stored"));
    }
    {
        const SimulatedPortal portal("yes", false);
        EXPECT_THAT(found(checkPortal(study), "desktop portal"), HasSubstr("note: it has no interface for the camera"));
    }
    {
        const SimulatedPortal portal("no", true, "Get");
        EXPECT_THAT(found(checkPortal(study, 200ms), "desktop portal"),
                    HasSubstr("bad: it is on the session bus and does not answer"));
    }
    {
        const SimulatedPortal portal("no", true, "Lookup");
        EXPECT_THAT(found(checkPortal(study, 200ms), "portal's answer"), HasSubstr("bad: its store"));
    }
    {
        const SimulatedPortal portal("yes");
        EXPECT_THAT(checkPortal(study), SizeIs(3));
        EXPECT_TRUE(areAllGood(checkPortal(study)));
    }
    const SimulatedPortal portal("no");
    const auto findings = checkPortal(study);
    EXPECT_THAT(found(findings, "desktop portal"), HasSubstr("good: "));
    EXPECT_THAT(found(findings, "portal's answer for org.example.study"), HasSubstr("good: "));
    EXPECT_THAT(found(findings, "portal's answer for hosts without a name"),
                HasSubstr(".DeletePermission devices camera ''"));
}

TEST(Doctor, LooksAtTheBundleAndTheData) {
    const TemporaryDirectory directory;
    Host host{.bundle = directory.path()};
    const auto list = [&](const std::string& keys) {
        writeFile(directory.path() / "Info.plist", "<plist><dict>" + keys + "</dict></plist>");
    };
    EXPECT_THAT(found(checkBundle(host, true), "property list"), HasSubstr("bad: There is no"));
    writeFile(directory.path() / "Info.plist", "<plist><di");
    EXPECT_THAT(found(checkBundle(host, true), "property list"), HasSubstr("bad: "));
    list("<key>CFBundleName</key><string>A</string>");
    EXPECT_THAT(found(checkBundle(host, true), "identifier"), HasSubstr("bad: there is no CFBundleIdentifier"));
    EXPECT_THAT(found(checkBundle(host, true), "camera's purpose"), HasSubstr("bad: "));
    EXPECT_THAT(found(checkData(host, {}), "data directory"), HasSubstr("bad: The host has no CFBundleIdentifier"));
    list("<key>CFBundleIdentifier</key><string>study</string><key>NSCameraUsageDescription</key><string/>");
    EXPECT_THAT(checkBundle(host, true), SizeIs(3));
    EXPECT_TRUE(areAllGood(checkBundle(host, true)));

    EXPECT_THAT(found(checkData({}, {}), "data directory"), HasSubstr("note: no host is named"));
    ::setenv("XDG_DATA_HOME", directory.path().c_str(), 1);
    const auto data = directory.path() / "study";
    const auto look = [&](const std::string& what) { return found(checkData(host, {}), what); };
    EXPECT_THAT(look("data directory"), HasSubstr("bad: there is no " + data.native()));
    fs::create_directory(data);
    EXPECT_THAT(look("store"), HasSubstr("bad: " + data.native() + " holds no"));
    for (const auto& [mode, result] :
         {std::pair(0755U, "bad: others may use it: 0755"), {0300U, "bad: its owner"}, {0700U, "good: 0700"}}) {
        fs::permissions(data, fs::perms(mode));
        EXPECT_THAT(look("permissions of " + data.native()), HasSubstr(result));
    }
    platform::SqliteObjectStore store([&] { return data; });
    platform::SqliteUserDefaults defaults([&] { return data; });
    EXPECT_TRUE(store.makeContainer("TrackingDataContainer")->loadPersistentStores());
    EXPECT_THAT(look("store"), HasSubstr("note: it is whole and holds nothing"));
    EXPECT_THAT(look("user identifier"), HasSubstr("note: there is none yet"));
    EXPECT_THAT(look("consent to light"), HasSubstr("bad: it is not given"));
    defaults.setValueForKey(true, "hasConsentedToTrackAmbientLight");
    defaults.setValueForKey("me", "userID");
    EXPECT_THAT(look("consent to light"), HasSubstr("good: "));
    EXPECT_THAT(look("consent to distance"), HasSubstr("bad: "));
    EXPECT_THAT(look("user identifier"), HasSubstr("good: "));
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(data.c_str(), 65534, 65534), 0);
        EXPECT_THAT(look("permissions of " + data.native()), HasSubstr("bad: it belongs to user 65534"));
    }
    fs::permissions(data / "UserDefaults.sqlite", fs::perms(0644));
    EXPECT_THAT(look("permissions of " + (data / "UserDefaults.sqlite").native()), HasSubstr("0644"));
    test::OtherProgram(data / "TrackingDataContainer.sqlite").run("INSERT INTO DataEntry(timestamp) VALUES(1)");
    EXPECT_THAT(look("store"), HasSubstr("bad: 1 record cannot be read; uploads leave it out"));
    for (const char* companion : {"-wal", "-shm"})
        fs::remove(data / (std::string("UserDefaults.sqlite") + companion));
    writeFile(data / "UserDefaults.sqlite", std::string(8192, 'x'));
    EXPECT_THAT(look("user identifier"), HasSubstr("bad: it cannot be read"));
}

}  // namespace tarvex::tool
