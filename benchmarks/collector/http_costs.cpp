// What the collector's HTTP server needs, beside nginx, and beside slow clients.
// usage: tarvex_collector_http_costs NGINX [ROUNDS]

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "collector/http_test_server.h"
#include "measures.h"

namespace tarvex::benchmarks {
namespace {

using namespace collector;
using collector::test::HttpClient;
using collector::test::TestServer;

constexpr std::size_t largeBytes = 150'000'000;
constexpr int smallPosts = 1'000;
constexpr int slowConnections = 500;

/// nginx, which writes each body to a file, and passes on that there was one.
class Nginx {
public:
    Nginx(const char* program, const HttpServer::Certificate& certificate) {
        const std::string directory = directory_.path().string();
        const std::string configuration = directory + "/nginx.conf";
        // Bodies are received by pieces as large as the collector's.
        tarvex::test::writeFile(
            configuration,
            "daemon off; master_process off; pid " + directory + "/pid; error_log " + directory +
                "/error.log; events {} http { access_log off;"
                "client_body_temp_path " +
                directory + "/bodies; proxy_temp_path " + directory + "/proxy; fastcgi_temp_path " + directory +
                "/fastcgi; uwsgi_temp_path " + directory + "/uwsgi; scgi_temp_path " + directory +
                "/scgi; client_max_body_size 0; client_body_buffer_size 64k;"
                "server { listen 127.0.0.1:" +
                std::to_string(port) + " ssl; ssl_certificate " + certificate.chain.string() +
                "; ssl_certificate_key " + certificate.key.string() +
                "; location / { client_body_in_file_only clean;"
                "proxy_pass_request_body off; proxy_set_header Content-Length \"\";"
                "proxy_pass http://127.0.0.1:" +
                std::to_string(port + 1) + "; } } server { listen 127.0.0.1:" + std::to_string(port + 1) +
                "; location / { return 200; } } }");
        process_ = fork();
        if (process_ == 0) {
            execl(program, program, "-c", configuration.c_str(), "-p", directory.c_str(), nullptr);
            _exit(127);
        }
        const bool isUp = tarvex::test::eventually([&] {
            try {
                const HttpClient probe(port, HttpClient::Security::tls);
                return true;
            } catch (const std::runtime_error&) {
                return false;
            }
        });
        if (!isUp) throw std::runtime_error("nginx does not start: " + tarvex::contentsOf(directory + "/error.log"));
    }
    ~Nginx() {
        ::kill(process_, SIGTERM);
        ::waitpid(process_, nullptr, 0);
    }
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    static constexpr std::uint16_t port = 18'943;

private:
    TemporaryDirectory directory_;
    pid_t process_ = 0;
};

/// Seconds of the clock, from the first byte of a request to its answer, on a connection that stands.
double timeOfPost(std::uint16_t port, const std::string& request) {
    HttpClient client(port, HttpClient::Security::tls);
    return costOf([&] {
               if (client.exchange(request).status != 200) throw std::runtime_error("the post fails");
           })
        .clock;
}

std::string noise(std::size_t size) {
    std::minstd_rand random(5);
    std::string text(size, '\0');
    for (char& letter : text)
        letter = static_cast<char>(random());
    return text;
}

/// Connections that send a byte of their bodies a second.
class SlowClients {
public:
    explicit SlowClients(const TestServer& server) {
        for (int number = 0; number < slowConnections; ++number) {
            clients_.push_back(server.connect());
            clients_.back()->send("POST /tracking HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100000\r\n\r\n");
        }
        thread_ = std::jthread([this](const std::stop_token& end) {
            while (!end.stop_requested()) {
                const auto next = std::chrono::steady_clock::now() + 1s;
                for (const auto& client : clients_)
                    if (!client->send(" ")) ++lost_;
                std::this_thread::sleep_until(next);
            }
        });
    }

    bool areAllThere() const { return lost_ == 0; }

private:
    std::vector<std::unique_ptr<HttpClient>> clients_;
    std::atomic<int> lost_ = 0;
    std::jthread thread_;
};

/// Seconds that all but a hundredth of the small posts stay below, each on a connection of its own.
double slowestOfMost(const TestServer& server) {
    const std::string request = collector::test::post(noise(1'000));
    std::vector<double> times;
    for (int number = 0; number < smallPosts; ++number)
        times.push_back(costOf([&] {
                            if (server.ask(request).status != 200) throw std::runtime_error("the post fails");
                        }).clock);
    std::ranges::sort(times);
    return times[times.size() * 99 / 100];
}

/// One round; each figure is a ratio inside it.
struct Round {
    double received = 0;
    double besideSlow = 0;
};

struct Times {
    std::vector<double> own;
    std::vector<double> nginx;
    std::vector<double> alone;
    std::vector<double> beside;
};

Round measureRound(const char* nginx, const std::string& large, Times& times) {
    const TestServer server(TestServer::Security::tls);
    const Nginx other(nginx, server.certificate());
    times.own.push_back(timeOfPost(server.server->port(), large));
    times.nginx.push_back(timeOfPost(Nginx::port, large));
    times.alone.push_back(slowestOfMost(server));
    const SlowClients slow(server);
    times.beside.push_back(slowestOfMost(server));
    if (!slow.areAllThere()) throw std::runtime_error("a slow connection has been cut");
    return {.received = times.own.back() / times.nginx.back(), .besideSlow = times.beside.back() / times.alone.back()};
}

void measure(const char* nginx, int rounds) {
    const rlimit descriptors{.rlim_cur = 4'000, .rlim_max = 4'000};
    ::setrlimit(RLIMIT_NOFILE, &descriptors);
    const std::string large = collector::test::post(noise(largeBytes));
    std::vector<Round> all;
    Times times;
    for (int round = 0; round < rounds; ++round)
        all.push_back(measureRound(nginx, large, times));
    std::printf("| What, over TLS | Measured | Target |\n|---|---|---|\n");
    printRow(all, "150 MB received and hashed, time against nginx that writes them to a file", &Round::received,
             "≤ 2 ×");
    printRow(all, "99th percentile of small posts beside 500 slow connections, against without", &Round::besideSlow,
             "≤ 2 ×");
    std::printf("\nIn the middle: %.2f s against %.2f s; %.1f ms against %.1f ms.\n", median(times.own),
                median(times.nginx), median(times.beside) * 1'000, median(times.alone) * 1'000);
}

}  // namespace
}  // namespace tarvex::benchmarks

int main(int count, char** arguments) {
    if (count < 2) {
        std::fprintf(stderr, "usage: %s NGINX [ROUNDS]\n", arguments[0]);
        return 2;
    }
    tarvex::benchmarks::measure(arguments[1], count > 2 ? std::atoi(arguments[2]) : 5);
    return 0;
}
