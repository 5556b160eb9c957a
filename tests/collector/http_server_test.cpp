#include "collector/http/server.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include "http_test_server.h"
#include "prelude.h"

namespace tarvex::collector {
namespace {

using test::Answer;
using test::digestOf;
using test::get;
using test::HttpClient;
using test::post;
using test::TestServer;
using Security = HttpClient::Security;
using Respond = std::function<void(Response)>;

std::string manyBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes)
        byte = static_cast<char>((state = state * 1'664'525U + 1'013'904'223U) >> 24U);
    return bytes;
}

}  // namespace

TEST(HttpServer, HandsOverEachBodyWholeWithItsDigest) {
    for (const Security security : {Security::none, Security::tls}) {
        std::string expected;
        std::atomic<int> wrong = 0;
        const TestServer server(security, [&](HttpServer::Options& options) {
            options.handle = [&](const Request& request, const Respond& respond) {
                const double now =
                    std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
                const bool isRight = test::contentsOf(request) == expected && request.body.bytes == expected.size() &&
                                     request.body.digest == digestOf(expected) &&
                                     std::abs(request.body.received - now) < 10 && request.head.path == "/tracking" &&
                                     request.head.peer == "127.0.0.1" && request.head.field("x-what") == "A b";
                if (!isRight) ++wrong;
                respond({.status = 201, .body = "taken", .fields = {{"X-Answer", "a\r\nb: c"}}});
            };
        });
        const auto client = server.connect();
        for (const std::size_t size : {0UZ, 1UZ, 70'000UZ, 20'000'000UZ, 5UZ}) {
            expected = manyBytes(size);
            const Answer answer = client->exchange(post(expected, "X-What: A b\r\n"));
            EXPECT_EQ(answer.status, 201) << size;
            EXPECT_EQ(answer.body, "taken");
            EXPECT_EQ(answer.fields.at("X-Answer"), "a  b: c") << "a value makes no other field";
        }
        EXPECT_EQ(wrong, 0);
    }
}

TEST(HttpServer, InvitesABodyOnlyAfterItsHeadHasPassed) {
    const TestServer server;
    const auto client = server.connect();
    client->send("POST /tracking HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n");
    EXPECT_EQ(client->receive().status, 100);
    EXPECT_EQ(client->exchange("abc").body, "3");
    client->send("POST /refused HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n");
    EXPECT_EQ(client->receive().status, 401);
    EXPECT_TRUE(client->isClosed());
    EXPECT_EQ(server.ask(post("abc", "Expect: 100-Continue\r\n")).body, "3") << "the body is there already";
    EXPECT_EQ(server.ask(post("abc", "Expect: the unexpected\r\n")).status, 417);
    EXPECT_EQ(server.handled, 2);
}

TEST(HttpServer, AnswersRequestsThatFollowEachOtherOnOneConnection) {
    const TestServer server(Security::none, [](HttpServer::Options& options) {
        options.handle = [](const Request& request, const Respond& respond) {
            respond({.body = request.head.method + " " + std::string(request.head.parameter("n")) +
                             test::contentsOf(request)});
        };
    });
    const auto client = server.connect();
    client->send(get("/?n=1") + post("abc") + get("/?n=2", "DELETE") + get("/?n=3", "HEAD") + get("/?n=4", "BREW"));
    EXPECT_EQ(client->receive().body, "GET 1");
    EXPECT_EQ(client->receive().body, "POST abc");
    EXPECT_EQ(client->receive().body, "DELETE 2");
    const Answer headOnly = client->receive(false);
    EXPECT_EQ(headOnly.fields.at("Content-Length"), "6");
    EXPECT_EQ(client->receive().body, "BREW 4");
    EXPECT_EQ(client->exchange("GET / HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n").body, "GET ");
    EXPECT_TRUE(client->isClosed());
    const auto old = server.connect();
    EXPECT_EQ(old->exchange("GET /?n=5 HTTP/1.0\r\n\r\n").body, "GET 5");
    EXPECT_TRUE(old->isClosed());
}

TEST(HttpServer, TakesTargetsApart) {
    const TestServer server(Security::none, [](HttpServer::Options& options) {
        options.screen = [](const RequestHead& head) {
            std::string text = head.path;
            for (const auto& [name, value] : head.query)
                text += "|" + name + "=" + value;
            return Response{.body = text};
        };
    });
    EXPECT_EQ(server.ask(get("/a%20b/+%c3%a9?x=1+2&y=%2B&empty&x=3&&")).body, "/a b/+\xC3\xA9|x=1 2|y=+|empty=|x=3");
    EXPECT_EQ(server.ask(get("http://localhost:1/a..b/...?q")).body, "/a..b/...|q=");
}

TEST(HttpServer, RefusesHostileHeadsWithoutShowingThemToAnybody) {
    const TestServer server;
    for (const std::string_view target : {"/..", "/a/../b", "/a/%2e%2E/b", "/a%2f..%2fb", "/./a", "/a%00", "/?q=%00",
                                          "/%", "/%4", "/%zz", "/a%0d%0ab", "/?q=%g1", "*", "host:443", "a", "/%7f"})
        EXPECT_EQ(server.ask(get(target)).status, 400) << target;
    using namespace std::string_view_literals;
    for (const std::string_view head :
         {"GET / HTTP/1.1\r\n\r\n"sv, "GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n"sv,
          "GET /\0 HTTP/1.1\r\nHost: h\r\n\r\n"sv, "GET / HTTP/1.1\r\nHost: h\r\nX: a\0b\r\n\r\n"sv,
          "GET / HTTP/2.0\r\nHost: h\r\n\r\n"sv, "\x16\x03\x01\x02"sv, "GET / HTTP/1.1\r\nHost: h\r\nX : a\r\n\r\n"sv,
          "nonsense\r\n\r\n"sv, "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: -1\r\n\r\n"sv,
          "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 5x\r\n\r\n"sv,
          "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 99999999999999999999\r\n\r\n"sv,
          "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nabc"sv,
          "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\nabc"sv})
        EXPECT_EQ(server.ask(head).status, 400) << head;
    EXPECT_EQ(server.ask(get("/" + std::string(20'000, 'a'))).status, 431);
    EXPECT_EQ(server.ask(post("", "X: " + std::string(16'500, 'a') + "\r\n")).status, 431);
    EXPECT_EQ(server.screened, 0);
    EXPECT_EQ(server.ask(post("", "X: " + std::string(15'000, 'a') + "\r\n")).status, 200);
    EXPECT_EQ(server.handled, 1);
}

TEST(HttpServer, RefusesBodiesThatItCannotTake) {
    for (const Security security : {Security::none, Security::tls}) {
        TestServer server(security, [](HttpServer::Options& options) { options.limits.body = 1000; });
        for (const std::string_view encoding : {"chunked", "gzip", "gzip, chunked"}) {
            const auto client = server.connect();
            const Answer answer =
                client->exchange("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: " + std::string(encoding) +
                                 "\r\n\r\n3\r\nabc\r\n0\r\n\r\n");
            EXPECT_EQ(answer.status, 411) << encoding;
            EXPECT_TRUE(client->isClosed()) << "where the next request begins is not known";
        }
        EXPECT_EQ(server.ask("POST / HTTP/1.1\r\nHost: h\r\n\r\n").status, 411);
        EXPECT_EQ(server.ask("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1001\r\n\r\n").status, 413);
        EXPECT_EQ(server.ask(post(manyBytes(2'000'000))).status, 413) << "whoever sends all of it first still reads it";
        EXPECT_EQ(server.ask(post("", "Expect: 100-continue\r\nContent-Length: 0\r\n")).status, 200);
        EXPECT_EQ(server.handled, 1);

        server.connect()->send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1000\r\n\r\nabc");
        const auto half = server.connect();
        half->send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1000\r\n\r\nabc");
        ::shutdown(half->descriptor(), SHUT_WR);
        EXPECT_TRUE(half->isClosed());
        EXPECT_EQ(server.ask(post(manyBytes(1000))).status, 200);
        server.server->stop(10s);
        EXPECT_EQ(server.handled, 2) << "a body that was cut short is not handled";
    }
}

TEST(HttpServer, SaysWhenTheDiskTakesNothing) {
    // The spool is not there any more, which ends a body as a full disk does.
    auto spool = std::make_unique<TemporaryDirectory>();
    const TestServer server(Security::none, [&](HttpServer::Options& options) { options.spool = spool->path(); });
    spool.reset();
    const Answer answer = server.ask(post(manyBytes(300'000)));
    EXPECT_EQ(answer.status, 503);
    EXPECT_TRUE(answer.fields.contains("Retry-After"));
    EXPECT_EQ(server.handled, 0);
    EXPECT_EQ(server.ask(get("/")).status, 200) << "without a body, no file is needed";
}

TEST(HttpServer, SaysWhenTheDiskIsFullInTheMiddleOfABody) {
    ::signal(SIGXFSZ, SIG_IGN);
    const TestServer server;
    rlimit usual{};
    ::getrlimit(RLIMIT_FSIZE, &usual);
    rlimit small{.rlim_cur = 1'000'000, .rlim_max = usual.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const Answer answer = server.ask(post(manyBytes(3'000'000)));
    ::setrlimit(RLIMIT_FSIZE, &usual);
    EXPECT_EQ(answer.status, 503);
    EXPECT_EQ(server.handled, 0);
    EXPECT_EQ(server.ask(post(manyBytes(3'000'000))).status, 200);
}

TEST(HttpServer, SendsPiecesOneAfterTheOther) {
    std::atomic<int> made = 0;
    std::atomic<int> begun = 0;
    std::set<std::thread::id> threads;
    std::promise<std::string> awaited;
    const auto waiting = awaited.get_future().share();
    TestServer server(Security::tls, [&](HttpServer::Options& options) {
        options.handle = [&](const Request& request, const Respond& respond) {
            Response response;
            if (request.head.path == "/broken") {
                response.pieces = [count = 0]() mutable {
                    return ++count < 3 ? std::string("piece") : throw std::runtime_error("the disk");
                };
            } else if (request.head.path == "/endless") {
                response.pieces = [&made] { return ++made, std::string(1'000'000, 'x'); };
            } else if (request.head.path == "/waiting") {
                response.pieces = [&begun, waiting] { return ++begun, waiting.get(); };
            } else {
                threads = {std::this_thread::get_id()};
                response.pieces = [&threads, count = 0]() mutable {
                    threads.insert(std::this_thread::get_id());
                    return ++count <= 100 ? std::to_string(count) + std::string(10'000, '.') : "";
                };
            }
            respond(std::move(response));
        };
    });
    const auto client = server.connect();
    for (int round = 0; round < 2; ++round) {
        const Answer answer = client->exchange(get("/"));
        EXPECT_TRUE(answer.isWhole);
        EXPECT_EQ(answer.body.size(), 100 * 10'000 + 9 + 2 * 90 + 3);
        EXPECT_EQ(threads.size(), 2) << "the server's, and one for the whole body";
    }
    client->send(get("/", "HEAD"));
    EXPECT_EQ(client->receive(false).fields.at("Transfer-Encoding"), "chunked");

    const Answer broken = client->exchange(get("/broken"));
    EXPECT_EQ(broken.status, 200);
    EXPECT_FALSE(broken.isWhole);

    std::vector<std::unique_ptr<HttpClient>> others;
    for (int other = 0; other < 32; ++other) {
        others.push_back(server.connect());
        others.back()->send(get("/waiting"));
    }
    EXPECT_TRUE(eventually([&] { return begun == 32; }));
    EXPECT_EQ(server.ask(get("/waiting")).status, 503) << "not for ever more threads";
    awaited.set_value("");
    for (const auto& other : others)
        EXPECT_TRUE(other->receive().isWhole);

    const auto lazy = server.connect();
    lazy->send(get("/endless"));
    EXPECT_TRUE(eventually([&] { return made > 0; }));
    std::this_thread::sleep_for(300ms);
    EXPECT_LT(made, 40) << "more than the buffers of the sockets hold is not made for who does not read";
    lazy->close();
    EXPECT_EQ(client->isClosed(), true);
    server.server->stop(10s);
}

TEST(HttpServer, AnswersOnceWhenAsked) {
    std::vector<Respond> kept;
    std::mutex mutex;
    TestServer server(Security::none, [&](HttpServer::Options& options) {
        options.handle = [&](const Request& request, const Respond& respond) {
            if (request.head.path == "/throws") throw std::runtime_error("no");
            const std::lock_guard lock(mutex);
            if (request.head.path == "/kept") kept.push_back(respond);
        };
    });
    EXPECT_EQ(server.ask(get("/forgotten")).status, 500);
    EXPECT_EQ(server.ask(get("/throws")).status, 500);
    const auto client = server.connect();
    for (const auto* text : {"first", "second"}) {
        client->send(get("/kept"));
        EXPECT_TRUE(eventually([&] {
            const std::lock_guard guard(mutex);
            return !kept.empty();
        }));
        std::jthread([&] {
            kept.front()({.body = text});
            kept.front()({.body = "again"});
        }).join();
        kept.clear();
        EXPECT_EQ(client->receive().body, text);
    }
    server.connect()->send(get("/kept"));
    client->send(get("/kept"));
    EXPECT_TRUE(eventually([&] {
        const std::lock_guard guard(mutex);
        return kept.size() == 2;
    }));
    server.server.reset();
    for (const Respond& respond : kept)
        respond({.body = "too late"});
    EXPECT_EQ(client->receive().status, 0);
}

}  // namespace tarvex::collector
