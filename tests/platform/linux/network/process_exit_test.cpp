// A process that ends during an upload ends at once and cleanly.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <latch>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/network/scripted_tls_server.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using std::chrono::milliseconds;
using test::ScriptedTlsServer;
using test::TlsConnection;

// Half a second of grace for a running handler, and the rest for a busy machine; what hangs here hangs for minutes.
constexpr milliseconds bound{5000};

// The probe, with pipes to its standard input and output.
class Probe {
public:
    explicit Probe(std::vector<std::string> arguments) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) return;
        arguments.insert(arguments.begin(), TARVEX_EXIT_PROBE);
        std::vector<char*> words;
        words.reserve(arguments.size() + 1);
        for (std::string& argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        posix_spawn_file_actions_t actions{};
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        posix_spawn(&process_, words.front(), &actions, nullptr, words.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        close(output[1]);
        input_ = input[1];
        output_ = output[0];
    }
    ~Probe() {
        close(input_);
        close(output_);
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    bool awaitReady() const {
        char first = '\0';
        return readable(output_, std::chrono::minutes(1)) && read(output_, &first, 1) == 1;
    }

    void tellToEnd() const {
        if (write(input_, "\n", 1) != 1) ADD_FAILURE() << "the probe has ended already";
    }

    /// Its exit code, -1 when it did not end by itself in time.
    int awaitEnd() const {
        std::array<char, 64> rest{};
        bool ended = false;
        while (!ended && readable(output_, bound))
            ended = read(output_, rest.data(), rest.size()) <= 0;
        if (!ended) kill(process_, SIGKILL);
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    static bool readable(int descriptor, milliseconds wait) {
        pollfd source{.fd = descriptor, .events = POLLIN, .revents = 0};
        return poll(&source, 1, static_cast<int>(wait.count())) == 1;
    }

    pid_t process_ = -1;
    int input_ = -1;
    int output_ = -1;
};

const collector::SelfSignedCertificate& certificate() {
    static const collector::SelfSignedCertificate certificate("backend.example");
    return certificate;
}

}  // namespace

TEST(ProcessExit, IsQuickAndCleanDuringAnUpload) {
    struct Meeting {
        std::latch underWay{1};
        std::latch over{1};
    };
    enum class Ready : std::uint8_t { saysServer, saysProbe };
    struct Case {
        const char* mode;
        Ready ready;
        std::function<void(TlsConnection&, Meeting&)> script;
    };
    const auto answer = [](TlsConnection& client, Meeting& meeting) {
        client.readHead();
        client.read(20'000'000);
        meeting.underWay.count_down();
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        client.waitForEnd();
    };
    const std::array cases{Case{"server-never-answers", Ready::saysServer,
                                [](TlsConnection& client, Meeting& meeting) {
                                    client.readHead();
                                    client.read(20'000'000);
                                    meeting.underWay.count_down();
                                    client.waitForEnd();
                                }},
                           Case{"server-takes-no-more-in", Ready::saysServer,
                                [](TlsConnection& client, Meeting& meeting) {
                                    client.readHead();
                                    meeting.underWay.count_down();
                                    meeting.over.wait();
                                }},
                           Case{"server-takes-the-body-in", Ready::saysServer,
                                [](TlsConnection& client, Meeting& meeting) {
                                    client.readHead();
                                    meeting.underWay.count_down();
                                    client.waitForEnd();
                                }},
                           Case{"handler-exits", Ready::saysServer, answer},
                           Case{"handler-hangs", Ready::saysProbe, answer},
                           Case{"upload-is-over", Ready::saysProbe, answer}};
    const test::TemporaryDirectory directory;
    const auto file = directory.path() / "certificate.pem";
    std::ofstream(file) << certificate().pem();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        Meeting meeting;
        const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) { c.script(client, meeting); });
        const Probe probe({c.mode, std::to_string(server.port()), file.string()});
        if (c.ready == Ready::saysServer)
            meeting.underWay.wait();
        else
            EXPECT_TRUE(probe.awaitReady());
        const auto begin = std::chrono::steady_clock::now();
        if (c.mode != std::string_view("handler-exits")) probe.tellToEnd();
        EXPECT_EQ(probe.awaitEnd(), 0);
        RecordProperty(c.mode, std::to_string((std::chrono::steady_clock::now() - begin) / milliseconds(1)) + " ms");
        meeting.over.count_down();
    }
}

TEST(ProcessExit, IsQuickWhileTheResolverHangs) {
    // The second probe is ready when the transfer has timed out, with the resolver still at it.
    for (const char* mode : {"resolver-hangs", "resolver-times-out"}) {
        SCOPED_TRACE(mode);
        const Probe probe({mode});
        ASSERT_TRUE(probe.awaitReady());
        const auto begin = std::chrono::steady_clock::now();
        probe.tellToEnd();
        EXPECT_EQ(probe.awaitEnd(), 0);
        RecordProperty(mode, std::to_string((std::chrono::steady_clock::now() - begin) / milliseconds(1)) + " ms");
    }
}

}  // namespace tarvex::platform
