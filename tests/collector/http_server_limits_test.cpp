#include <sys/resource.h>

#include "http_test_server.h"
#include "prelude.h"

namespace tarvex::collector {
namespace {

using test::Answer;
using test::get;
using test::HttpClient;
using test::post;
using test::TestServer;
using Security = HttpClient::Security;
using Respond = std::function<void(Response)>;
using Clock = std::chrono::steady_clock;

/// Time of this process on the processors.
std::chrono::microseconds processorTime() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

}  // namespace

TEST(HttpServer, SpeaksNoTlsOlderThan12AndNothingElse) {
    const TestServer server(Security::tls, [](HttpServer::Options& options) { options.limits.handshake = 300ms; });
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION})
        EXPECT_ANY_THROW(server.connect(version));
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION})
        EXPECT_EQ(server.connect(version)->exchange(post("abc")).body, "3");

    HttpClient plain(server.server->port());
    EXPECT_NE(plain.exchange(post("abc")).status, 200);
    HttpClient mute(server.server->port());
    HttpClient slow(server.server->port());
    const std::jthread trickle([&](const std::stop_token& token) {
        while (!token.stop_requested() && slow.send(std::string(1, '\x16')))
            std::this_thread::sleep_for(50ms);
    });
    EXPECT_TRUE(mute.isClosed(2s));
    EXPECT_TRUE(slow.isClosed(2s)) << "the handshake has its time as a whole";
    EXPECT_EQ(server.handled, 2);
}

TEST(HttpServer, LeavesClientsThatAreTooSlowWhileItServesOthers) {
    for (const Security security : {Security::none, Security::tls}) {
        std::weak_ptr<int> endless;
        const TestServer server(security, [&](HttpServer::Options& options) {
            options.limits.idle = 400ms;
            options.limits.rateWindow = 600ms;
            options.handle = [&](const Request& request, const Respond& respond) {
                const auto held = std::make_shared<int>();
                if (request.head.path != "/endless") return respond({.body = "small"});
                endless = held;
                respond({.pieces = [held] { return std::string(1'000'000, 'x'); }});
            };
        });
        const std::string head = "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 100000\r\n\r\n";
        const std::array clients{server.connect(), server.connect(), server.connect(), server.connect()};
        clients[0]->send("POST / HT");      // and then byte by byte
        clients[1]->send(head);             // and then byte by byte
        clients[2]->send(head + "a");       // and then nothing
        clients[3]->send(get("/endless"));  // and then no byte is read
        const auto begin = Clock::now();
        int trickled = 0;
        for (bool isTaken = true; isTaken && trickled < 200; ++trickled) {
            isTaken = clients[0]->send("T");
            isTaken = clients[1]->send("b") || isTaken;
            EXPECT_EQ(server.ask(post("abc")).body, "small");
            std::this_thread::sleep_for(20ms);
        }
        EXPECT_LT(trickled, 200);
        EXPECT_GT(Clock::now() - begin, 550ms) << "a rate is only known after its window";
        for (int silent = 0; silent < 3; ++silent)
            EXPECT_TRUE(clients.at(silent)->isClosed(100ms)) << silent;
        EXPECT_TRUE(eventually([&] { return endless.expired(); })) << "nobody waits for who does not read";
    }
}

TEST(HttpServer, KeepsASteadyBodyHoweverLongItTakes) {
    const TestServer server(Security::none, [](HttpServer::Options& options) {
        options.limits.idle = 1s;
        options.limits.rateWindow = 1s;
    });
    const auto client = server.connect();
    client->send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 15000\r\n\r\n");
    for (int part = 0; part < 30; ++part) {
        EXPECT_TRUE(client->send(std::string(500, 'x')));
        std::this_thread::sleep_for(70ms);
    }
    EXPECT_EQ(client->receive().body, "15000");
}

TEST(HttpServer, TakesOnlySoManyConnectionsAtATime) {
    const TestServer server(Security::none, [](HttpServer::Options& options) {
        options.limits.connections = 3;
        options.limits.connectionsOfAnAddress = 1;  // of which loopback is exempt
    });
    std::vector<std::unique_ptr<HttpClient>> clients;
    for (int client = 0; client < 3; ++client) {
        clients.push_back(server.connect());
        EXPECT_EQ(clients.back()->exchange(post("abc")).status, 200);
    }
    EXPECT_TRUE(server.connect()->isClosed());
    EXPECT_EQ(clients.front()->exchange(post("abc")).status, 200);
    clients.pop_back();
    EXPECT_TRUE(eventually([&] { return server.ask(post("abc")).status == 200; }));
}

TEST(HttpServer, WaitsForDescriptorsWithoutSpinning) {
    const TestServer server;
    const auto client = server.connect();
    EXPECT_EQ(client->exchange(get("/")).status, 200);
    const int waiting = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{.rlim_cur = 3, .rlim_max = usual.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.server->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(waiting, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    const auto before = processorTime();
    std::this_thread::sleep_for(500ms);
    EXPECT_LT(processorTime() - before, 100ms);
    EXPECT_EQ(client->exchange(get("/")).status, 200) << "who is there is served";
    ::setrlimit(RLIMIT_NOFILE, &usual);
    ::close(waiting);
    EXPECT_EQ(server.ask(post("abc")).status, 200);
}

TEST(HttpServer, TakesANewCertificateForNewConnections) {
    TestServer server(Security::tls);
    const auto old = server.connect();
    EXPECT_TRUE(old->sawCertificateOf("localhost"));
    makeSelfSignedCertificate(server.certificate(), {"new.example"});
    EXPECT_TRUE(server.connect()->sawCertificateOf("localhost"));
    EXPECT_EQ(server.server->reloadCertificate(), std::nullopt);
    EXPECT_TRUE(server.connect()->sawCertificateOf("new.example"));
    EXPECT_EQ(old->exchange(post("abc")).status, 200);

    const std::string chain = contentsOf(server.certificate().chain);
    makeSelfSignedCertificate(server.certificate(), {"other.example"});
    writeFile(server.certificate().chain, chain);
    EXPECT_THAT(server.server->reloadCertificate(), Optional(HasSubstr("does not fit the certificate")));
    writeFile(server.certificate().chain, "nonsense");
    EXPECT_THAT(server.server->reloadCertificate(), Optional(HasSubstr("chain.pem cannot be read")));
    std::filesystem::remove(server.certificate().chain);
    EXPECT_THAT(server.server->reloadCertificate(),
                Optional(MatchesRegex("The certificate [^.]+.pem cannot be read.*\\.")));
    EXPECT_TRUE(server.connect()->sawCertificateOf("new.example"));
    EXPECT_EQ(TestServer().server->reloadCertificate(), std::nullopt);
}

TEST(HttpServer, StopsAfterTheAnswersUnderWay) {
    for (const Security security : {Security::none, Security::tls}) {
        std::promise<Respond> given;
        TestServer server(security, [&](HttpServer::Options& options) {
            options.handle = [&](const Request& request, const Respond& respond) {
                if (request.head.path == "/tracking")
                    given.set_value(respond);
                else
                    respond({});
            };
        });
        const auto idle = server.connect();
        EXPECT_EQ(idle->exchange(get("/")).status, 200);
        const auto unfinished = server.connect();
        unfinished->send("POST / HT");
        const auto waiting = server.connect();
        waiting->send(post("abc"));
        const Respond respond = given.get_future().get();

        std::atomic<bool> hasStopped = false;
        std::jthread stopping([&] {
            server.server->stop(20s);
            hasStopped = true;
        });
        EXPECT_TRUE(idle->isClosed());
        EXPECT_TRUE(unfinished->isClosed());
        EXPECT_TRUE(eventually([&] {
            try {
                return HttpClient(server.server->port()).isClosed();
            } catch (const std::runtime_error&) {
                return true;
            }
        }));
        EXPECT_FALSE(hasStopped);
        respond({.body = "done"});
        const Answer answer = waiting->receive();
        EXPECT_EQ(answer.body, "done");
        EXPECT_EQ(answer.fields.at("Connection"), "close");
        stopping.join();
        EXPECT_TRUE(waiting->isClosed());
    }
}

TEST(HttpServer, CutsWhatTakesTooLongToStop) {
    TestServer server(Security::tls, [](HttpServer::Options& options) {
        options.handle = [](const Request&, const Respond& respond) {
            respond({.pieces = [] { return std::this_thread::sleep_for(10ms), std::string("more"); }});
        };
    });
    const auto endless = server.connect();
    endless->send(get("/"));
    const auto body = server.connect();
    body->send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 100000\r\n\r\nabc");
    const auto begin = Clock::now();
    server.server->stop(200ms);
    EXPECT_LT(Clock::now() - begin, 2s);
    EXPECT_FALSE(endless->receive().isWhole);
    EXPECT_TRUE(body->isClosed());
    server.server->stop(200ms);  // a second time is as good
}

TEST(HttpServer, SaysWhyItCannotListen) {
    const TestServer server;
    const auto reason = [&](const std::function<void(HttpServer::Options&)>& change) {
        try {
            const TestServer another(Security::none, change);
        } catch (const std::exception& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_THAT(reason([&](auto& options) { options.port = server.server->port(); }), HasSubstr("in use"));
    EXPECT_THAT(reason([](auto& options) { options.address = "nowhere"; }),
                HasSubstr("\"nowhere\" is not an IP address"));
    EXPECT_THAT(reason([](auto& options) { options.spool = "/nowhere"; }), HasSubstr("temporary file"));
    EXPECT_THAT(reason([](auto& options) { options.certificate = {"/nowhere/a", "/nowhere/b"}; }),
                HasSubstr("/nowhere/a cannot be read"));
}

}  // namespace tarvex::collector
