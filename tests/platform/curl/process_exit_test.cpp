// A process that ends during an upload ends at once and cleanly.

#include "child_process.h"
#include "platform/curl/scripted_tls_server.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using namespace test;

constexpr const char* okay = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

class ProcessExit : public ::testing::Test {
protected:
    ProcessExit() { writeFile(directory.path() / "certificate.pem", certificate.pem()); }

    ChildProcess probe(const std::string& mode, const ScriptedTlsServer& server) const {
        return ChildProcess([&, port = std::to_string(server.port())](int output) {
            dup2(output, STDOUT_FILENO);
            return execl(TARVEX_EXIT_PROBE, "probe", mode.c_str(), directory.path().c_str(), port.c_str(), nullptr);
        });
    }

    const TemporaryDirectory directory;
    const test::SelfSignedCertificate certificate{TARVEX_BACKEND_HOST};
};

TEST_F(ProcessExit, IsQuickAndCleanDuringAnUpload) {
    enum Server : std::uint8_t { takesTheBodyIn, neverAnswers, answers };
    using Case = std::tuple<std::string, Server, bool>;
    for (const auto& [mode, does, probeSaysWhen] :
         {Case{"server-takes-the-body-in", takesTheBodyIn, false}, Case{"server-never-answers", neverAnswers, false},
          Case{"handler-exits", answers, false}, Case{"handler-hangs", answers, true},
          Case{"handler-sends-again", answers, true}, Case{"upload-is-over", answers, true},
          Case{"resolver-hangs", answers, true}, Case{"resolver-times-out", answers, true}}) {
        SCOPED_TRACE(mode);
        std::latch underWay(1);
        const ScriptedTlsServer server(certificate, [&](TlsConnection& client) {
            client.readHead();
            if (does >= neverAnswers) client.read(20'000'000);
            underWay.count_down();
            if (does == answers) client.write(okay);
            client.waitForEnd();
        });
        ChildProcess process = probe(mode, server);
        char ready = 0;
        if (probeSaysWhen)  // else the server does
            EXPECT_EQ(read(process.output(), &ready, 1), 1);
        else
            underWay.wait();
        const auto begin = std::chrono::steady_clock::now();
        if (mode != "handler-exits") process.kill(SIGTERM);
        EXPECT_EQ(process.wait(), 0);
        // Half a second for a running handler, and the rest for a busy machine; a hang takes minutes.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    }
}

TEST_F(ProcessExit, TheHostMayShareUntilItsLastStaticObjectIsGone) {
    std::atomic<int> documents = 0;
    {
        const ScriptedTlsServer server(certificate, [&](TlsConnection& client) {
            const std::string head = client.readHead();
            const std::string document = client.read(std::stoul(head.substr(head.find("Content-Length: ") + 16)));
            documents += document.contains(R"("data":{"lux":1e+05})") ? 1 : 0;
            client.write(okay);
        });
        EXPECT_EQ(probe("host-shares", server).wait(), 0);
    }
    EXPECT_EQ(documents, 2) << "from main and from the handler that runs before the library's own";
}

}  // namespace
}  // namespace tarvex::platform
