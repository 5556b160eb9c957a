// A process that ends during an upload ends at once and cleanly.

#include <glib.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "platform/linux/network/scripted_tls_server.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using std::chrono::milliseconds;
using test::certificate;
using test::ScriptedTlsServer;
using test::TlsConnection;

// Half a second of grace for a running handler, and the rest for a busy machine; what hangs here hangs for minutes.
constexpr milliseconds bound = 5s;

// The probe, with pipes to its standard input and output.
class Probe {
public:
    explicit Probe(std::vector<std::string> arguments) {
        std::string program = TARVEX_EXIT_PROBE;
        std::vector<char*> words{program.data()};
        std::ranges::transform(arguments, std::back_inserter(words), [](std::string& word) { return word.data(); });
        words.push_back(nullptr);
        g_spawn_async_with_pipes(nullptr, words.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &process_,
                                 &input_, &output_, nullptr, nullptr);
    }
    ~Probe() {
        close(input_);
        close(output_);
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    bool awaitReady() const {
        char first = '\0';
        return readable(1min) && read(output_, &first, 1) == 1;
    }

    void tellToEnd() const {
        if (write(input_, "\n", 1) != 1) ADD_FAILURE() << "the probe has ended already";
    }

    /// Its exit code, -1 when it did not end by itself in time.
    int awaitEnd() const {
        std::array<char, 64> rest{};
        bool ended = false;
        while (!ended && readable(bound))
            ended = read(output_, rest.data(), rest.size()) <= 0;
        if (!ended) kill(process_, SIGKILL);
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    bool readable(milliseconds wait) const {
        pollfd source{.fd = output_, .events = POLLIN, .revents = 0};
        return poll(&source, 1, static_cast<int>(wait.count())) == 1;
    }

    GPid process_ = -1;
    int input_ = -1;
    int output_ = -1;
};

}  // namespace

TEST(ProcessExit, IsQuickAndCleanDuringAnUpload) {
    enum Server : std::uint8_t { takesNoMoreIn, takesTheBodyIn, neverAnswers, answers };
    struct Case {
        std::string mode;
        Server does;
        bool probeSaysWhen;  // else the server does
    };
    const TemporaryDirectory directory;
    const auto file = directory.path() / "certificate.pem";
    writeFile(file, certificate().pem());
    for (const Case& c :
         {Case{"server-never-answers", neverAnswers, false}, Case{"server-takes-no-more-in", takesNoMoreIn, false},
          Case{"server-takes-the-body-in", takesTheBodyIn, false}, Case{"handler-exits", answers, false},
          Case{"handler-hangs", answers, true}, Case{"upload-is-over", answers, true}}) {
        SCOPED_TRACE(c.mode);
        std::latch underWay(1);
        std::latch over(1);
        const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) {
            client.readHead();
            if (c.does >= neverAnswers) client.read(20'000'000);
            underWay.count_down();
            if (c.does == answers) client.write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
            if (c.does == takesNoMoreIn)
                over.wait();
            else
                client.waitForEnd();
        });
        const Probe probe({c.mode, std::to_string(server.port()), file});
        if (c.probeSaysWhen)
            EXPECT_TRUE(probe.awaitReady());
        else
            underWay.wait();
        if (c.mode != "handler-exits") probe.tellToEnd();
        EXPECT_EQ(probe.awaitEnd(), 0);
        over.count_down();
    }
}

TEST(ProcessExit, IsQuickWhileTheResolverHangs) {
    // The second probe is ready when the transfer has timed out, with the resolver still at it.
    for (const char* mode : {"resolver-hangs", "resolver-times-out"}) {
        SCOPED_TRACE(mode);
        const Probe probe({mode});
        ASSERT_TRUE(probe.awaitReady());
        probe.tellToEnd();
        EXPECT_EQ(probe.awaitEnd(), 0);
    }
}

}  // namespace tarvex::platform
