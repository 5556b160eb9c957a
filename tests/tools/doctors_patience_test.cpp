// What stands in the doctor's way: proxies, and what hangs.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "doctor/checks.h"
#include "doctor/separate_look.h"
#include "findings.h"
#include "platform/curl/scripted_tls_server.h"
#include "platform/portal/video_devices.h"

namespace tarvex::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* host = "backend.example.org";

}  // namespace

TEST(DoctorsPatience, TellsAProxyThatStandsInTheWayFromABackendThatDoes) {
    const test::SelfSignedCertificate certificate("localhost");
    const auto through = [&](const test::ScriptedTlsServer::Script& script, test::ScriptedTlsServer::Kind kind = {}) {
        const test::ScriptedTlsServer proxy(certificate, script, kind);
        ::setenv("https_proxy", ("https://secret@localhost:" + std::to_string(proxy.port())).c_str(), 1);
        return checkBackend({.host = host,
                             .transport = {.trustedCertificatesPem = certificate.pem(), .connectTo = std::nullopt},
                             .limit = 500ms});
    };
    const auto answering = [](const char* status) {
        return [status](test::TlsConnection& connection) {
            if (connection.readHead().starts_with("CONNECT backend.example.org:443 "))
                connection.write(std::string("HTTP/1.1 ") + status + "\r\nContent-Length: 0\r\n\r\n");
        };
    };
    constexpr const char* proxy = "proxy of the environment's https_proxy";
    EXPECT_THAT(found(through(answering("403 Forbidden")), proxy), HasSubstr("response 403 | is it the right one"));
    EXPECT_THAT(found(through(answering("407 Who?")), proxy), HasSubstr("bad: it wants a user"));
    EXPECT_THAT(found(through([](auto&) {}), proxy), HasSubstr("bad: "));
    EXPECT_THAT(found(through({}, test::ScriptedTlsServer::Kind::silent), proxy), HasSubstr("timed out"));
    const auto beyond = through(answering("200 Go on"));
    EXPECT_THAT(found(beyond, proxy), HasSubstr("good: it connects"));
    EXPECT_THAT(found(beyond, "backend's certificate"), HasSubstr("bad: "));
    EXPECT_THAT(textOf(beyond), Not(HasSubstr("secret")));
    ::setenv("https_proxy", "http://127.0.0.1:1", 1);
    EXPECT_THAT(found(checkBackend({.host = host}), proxy), HasSubstr("bad: Failed to connect"));
    ::setenv("https_proxy", "socks5h://127.0.0.1:1", 1);
    EXPECT_THAT(found(checkBackend({.host = host}), proxy), HasSubstr("bad: Failed to connect"));
    ::setenv("no_proxy", "localhost", 1);
    EXPECT_THAT(checkBackend({.host = "localhost"}).front().what, Not(HasSubstr("proxy")));
    ::unsetenv("https_proxy");
    ::unsetenv("no_proxy");
}

TEST(DoctorsPatience, GivesALookThatHangsOrCrashesUp) {
    const auto within = [](const std::function<Findings()>& work, std::chrono::milliseconds patience) {
        return SeparateLook(work).findings(std::chrono::steady_clock::now() + patience);
    };
    const auto sleep = [] { return ::pause() == 0 ? Findings() : Findings(); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(within(sleep, 50ms));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    EXPECT_FALSE(within([]() -> Findings { ::_exit(3); }, 5s));
    const auto answer = within([] { return Findings{good("a", ""), bad("b", "c", std::string(100'000, 'd'))}; }, 5s);
    ASSERT_TRUE(answer && answer->size() == 2);
    EXPECT_EQ(textOf(*answer), textOf({good("a", ""), bad("b", "c", std::string(100'000, 'd'))}));
}

TEST(DoctorsPatience, SaysWhatGStreamerLacksAndThatItsStartHangs) {
    const TemporaryDirectory directory;
    ::setenv("GST_PLUGIN_SYSTEM_PATH", directory.path().c_str(), 1);
    ::setenv("GST_REGISTRY", (directory.path() / "registry").c_str(), 1);
    EXPECT_THAT(
        found(checkElements(), "GStreamer's jpegdec"),
        HasSubstr("bad: it is missing | sudo apt install gstreamer1.0-plugins-good; or this environment leads it "
                  "astray: unset GST_PLUGIN_SYSTEM_PATH GST_REGISTRY"));
    ::unsetenv("GST_PLUGIN_SYSTEM_PATH");
    writeFile(directory.path() / "scanner", "#!/bin/sh\nexec sleep 20\n");
    fs::permissions(directory.path() / "scanner", fs::perms(0755));
    ::setenv("GST_PLUGIN_SCANNER", (directory.path() / "scanner").c_str(), 1);
    EXPECT_THAT(found(checkElements(300ms), "GStreamer"), HasSubstr("bad: it does not end its start"));
    ::unsetenv("GST_PLUGIN_SCANNER");
    ::unsetenv("GST_REGISTRY");
}

TEST(DoctorsPatience, SaysThatPipeWireDoesNotAnswer) {
    const TemporaryDirectory directory;
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::ranges::copy((directory.path() / "pipewire-0").native(), std::begin(address.sun_path));
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 8), 0);
    ::setenv("XDG_RUNTIME_DIR", directory.path().c_str(), 1);
    const auto findings = checkCameras();
    ::unsetenv("XDG_RUNTIME_DIR");
    ::close(listener);
    EXPECT_THAT(found(findings, "PipeWire"), HasSubstr("bad: it runs, and does not say which cameras there are"));
    if (platform::videoDeviceNodes("/dev").empty()) {
        EXPECT_THAT(found(findings, "camera"), HasSubstr("bad: a host finds none, as PipeWire"));
    }
}

}  // namespace tarvex::tool
