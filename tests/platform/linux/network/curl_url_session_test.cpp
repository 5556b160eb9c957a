#include "platform/linux/network/curl_url_session.h"

#include <pthread.h>

#include <csignal>

#include "platform/linux/network/posted_request.h"
#include "platform/linux/network/scripted_tls_server.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using collector::SelfSignedCertificate;
using std::chrono::milliseconds;
using test::bodyOf;
using test::certificate;
using test::PostedRequest;
using test::request;
using test::ScriptedTlsServer;
using test::TlsConnection;
using Kind = ScriptedTlsServer::Kind;
using Script = ScriptedTlsServer::Script;

constexpr std::size_t megabyte = 1'000'000;
constexpr const char* okay = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

std::unique_ptr<CurlUrlSession> sessionFor(std::uint16_t port, std::optional<std::string> trusted) {
    return std::make_unique<CurlUrlSession>(CurlTransportOptions{
        .trustedCertificatesPem = std::move(trusted),
        .connectTo = CurlTransportOptions::ConnectTo{
            .host = "backend.example", .port = 443, .targetHost = "127.0.0.1", .targetPort = port}});
}

std::unique_ptr<CurlUrlSession> sessionFor(const ScriptedTlsServer& server) {
    return sessionFor(server.port(), certificate().pem());
}

PostedRequest::Outcome outcomeOf(CurlUrlSession& session, UrlRequest request = test::request(bodyOf("{}"))) {
    return PostedRequest(session, std::move(request)).outcome();
}

UrlRequest refusedRequest() {
    return request(bodyOf("{}"), 60s, "http://backend.example/tracking");
}

// Takes in a request whose body is the two bytes that most tests send.
void readRequest(TlsConnection& client) {
    client.readHead();
    client.read(2);
}

Script answering(std::string text) {
    return [text = std::move(text)](TlsConnection& client) {
        readRequest(client);
        client.write(text);
        client.close();
    };
}

// Sends the piece again and again, until the client goes away.
Script repeating(std::string first, std::string piece, milliseconds pause) {
    return [=](TlsConnection& client) {
        readRequest(client);
        client.write(first);
        while (client.write(piece))
            std::this_thread::sleep_for(pause);
    };
}

std::shared_ptr<const ByteBuffer> largeBody(std::size_t size) {
    auto body = std::make_shared<ByteBuffer>();
    std::uint32_t noise = 1;
    for (char& byte : body->spare(size).first(size))
        byte = static_cast<char>((noise = noise * 1664525U + 1013904223U) >> 24U);
    body->extend(size);
    return body;
}

}  // namespace

TEST(CurlUrlSession, SendsTheRequestByteForByteAndNothingElse) {
    for (const auto& body : {bodyOf("{}"), bodyOf(""), largeBody(64 * megabyte)}) {
        std::string head;
        bool identical = false;
        const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) {
            head = client.readHead();
            identical = client.read(body->size()) == body->view();
            client.write(okay);
        });
        EXPECT_EQ(outcomeOf(*sessionFor(server), request(body)).status, 200);
        EXPECT_TRUE(identical);
        EXPECT_EQ(head,
                  "POST /tracking HTTP/1.1\r\n"
                  "Host: backend.example\r\n"
                  "Content-Type: application/json\r\n"
                  "Content-Length: " +
                      std::to_string(body->size()) + "\r\n\r\n");
    }
}

TEST(CurlUrlSession, DeliversTheStatusOfTheFinalAnswer) {
    using Case = std::pair<const char*, int>;
    for (const auto& [answer, status] :
         {Case{"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", 200},
          Case{"HTTP/1.1 200 OK\r\n\r\nas long as the connection", 200},
          Case{"HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n", 201},
          Case{"HTTP/1.1 301 Moved\r\nLocation: https://backend.example/else\r\n\r\n", 301},
          Case{"HTTP/1.1 401 No\r\nWWW-Authenticate: Basic\r\nContent-Length: 0\r\n\r\n", 401},
          Case{"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 204 No Content\r\n\r\n", 204},
          Case{"HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 500 Oops\r\nContent-Length: 0\r\n\r\n", 500}}) {
        SCOPED_TRACE(answer);
        const ScriptedTlsServer server(certificate(), answering(answer));
        const auto outcome = outcomeOf(*sessionFor(server));
        EXPECT_EQ(outcome.status, status);
        EXPECT_THAT(outcome.error, IsEmpty());
        EXPECT_EQ(server.clients(), 1) << "nothing is followed, and nothing is sent twice";
    }
}

TEST(CurlUrlSession, ReportsAnAnswerThatIsNoneInCurlsWords) {
    using Case = std::tuple<const char*, Script, const char*>;
    for (const auto& [what, script, error] :
         {Case{"broken off before the answer", readRequest, "Empty reply from server"},
          Case{"broken off while the body is sent", [](TlsConnection& client) { client.readHead(); }, ""},
          Case{"not HTTP", answering("220 mail.example ESMTP\r\n"), "Received HTTP/0.9 when not allowed"},
          Case{"an interim answer only", answering("HTTP/1.1 100 Continue\r\n\r\n"), "Empty reply from server"},
          Case{"another protocol", answering("HTTP/1.1 101 Switching Protocols\r\n\r\nhello"),
               "Server returned nothing (no headers, no data)"},
          Case{"a body that is too short", answering("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n1234"),
               "transfer closed with 5 bytes remaining to read"},
          Case{"a head without an end",
               repeating("HTTP/1.1 200 OK\r\n", "X-Filler: " + std::string(1000, 'x') + "\r\n", 0ms), ""}}) {
        SCOPED_TRACE(what);
        const ScriptedTlsServer server(certificate(), script);
        const auto outcome = outcomeOf(*sessionFor(server));
        EXPECT_FALSE(outcome.hasResponse);
        EXPECT_THAT(outcome.error, HasSubstr(error));
        EXPECT_THAT(outcome.error, Not(IsEmpty()));
    }
}

TEST(CurlUrlSession, ReportsWhatCannotBeReached) {
    const std::uint16_t unused = ScriptedTlsServer(certificate(), readRequest).port();
    const auto session = sessionFor(unused, std::nullopt);
    EXPECT_THAT(outcomeOf(*session).error, HasSubstr("Failed to connect to 127.0.0.1"));
    EXPECT_THAT(outcomeOf(*session, refusedRequest()).error, HasSubstr("\"http\" not supported or disabled"));
}

TEST(CurlUrlSession, RespectsTheProxyVariables) {
    setenv("https_proxy", "http://127.0.0.1:9", 1);
    CurlUrlSession session;
    EXPECT_THAT(outcomeOf(session).error, HasSubstr("127.0.0.1 port 9"));
}

TEST(CurlUrlSession, TalksOnlyToAServerWhoseCertificateIsRight) {
    using std::chrono::days;
    struct Case {
        const char* what;
        const char* name;
        SelfSignedCertificate::Validity validity;
        bool trusted;
        const char* error;
    };
    for (const Case& c : {Case{"right", "backend.example", {}, true, ""},
                          Case{"wrong name", "other.example", {}, true, "no alternative certificate subject name"},
                          Case{"expired", "backend.example", {days(-2), days(-1)}, true, "certificate has expired"},
                          Case{"from tomorrow", "backend.example", {days(1), days(2)}, true, "not yet valid"},
                          Case{"unknown", "backend.example", {}, false, "self-signed certificate"}}) {
        SCOPED_TRACE(c.what);
        const SelfSignedCertificate presented(c.name, c.validity);
        std::string received;
        PostedRequest::Outcome outcome;
        {
            const ScriptedTlsServer server(presented, [&](TlsConnection& client) {
                received = client.readHead();
                client.write(okay);
            });
            const auto session = sessionFor(server.port(), c.trusted ? presented.pem() : certificate().pem());
            outcome = outcomeOf(*session, request(bodyOf("")));
        }
        const bool right = std::string_view(c.error).empty();
        EXPECT_EQ(outcome.hasResponse, right);
        EXPECT_THAT(outcome.error, HasSubstr(c.error));
        EXPECT_EQ(received.empty(), !right) << "a server that is not trusted gets to see nothing";
    }
}

TEST(CurlUrlSession, NoVariableMakesItTrustACertificate) {
    const TemporaryDirectory directory;
    const auto file = directory.path() / "certificate.pem";
    writeFile(file, certificate().pem());
    for (const char* variable : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"})
        setenv(variable, file.c_str(), 1);
    setenv("SSL_CERT_DIR", directory.path().c_str(), 1);

    const ScriptedTlsServer server(certificate(), answering(okay));
    EXPECT_THAT(outcomeOf(*sessionFor(server.port(), std::nullopt)).error, HasSubstr("self-signed certificate"));
}

TEST(CurlUrlSession, RefusesOldTls) {
    const ScriptedTlsServer server(certificate(), answering(okay), Kind::onlyTls11);
    EXPECT_THAT(outcomeOf(*sessionFor(server)).error,
                AnyOf(HasSubstr("protocol version"), HasSubstr("unsupported protocol")));
    EXPECT_EQ(server.clients(), 0);
}

TEST(CurlUrlSession, AnEarlyAnswerCountsUnlessItIsSuccess) {
    const auto body = largeBody(60 * megabyte);
    const auto outcomeOfEarly = [&](const std::string& answer) {
        const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) {
            client.readHead();
            client.read(20'000);
            client.write(answer);
            client.close();
            client.waitForEnd();
        });
        return outcomeOf(*sessionFor(server), request(body));
    };
    const auto accepted = outcomeOfEarly("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    EXPECT_FALSE(accepted.hasResponse);
    EXPECT_EQ(accepted.error, "The server answered before the whole body was sent");
    EXPECT_EQ(outcomeOfEarly("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n").status, 413);
    EXPECT_EQ(outcomeOfEarly("HTTP/1.1 201 Created\r\nContent-Length: 0\r\nConnection: close\r\n\r\n").status, 201);
}

TEST(CurlUrlSession, EndsWhenNothingMoves) {
    const auto waits = [](TlsConnection& client) { client.waitForEnd(); };
    // An answer that trickles in does not keep the upload alive.
    const auto tricklesBeforeTheBody = [](TlsConnection& client) {
        client.readHead();
        while (client.write("HTTP/1.1 102 Processing\r\n\r\n"))
            std::this_thread::sleep_for(50ms);
    };
    const auto stopsWithinTheAnswer = [](TlsConnection& client) {
        readRequest(client);
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n12");
        client.waitForEnd();
    };
    struct Case {
        const char* what;
        Kind kind;
        Script script;
        std::size_t bodySize;
        const char* error;
    };
    for (const Case& c : {Case{"a handshake", Kind::silent, waits, 2, "SSL connection timeout"},
                          Case{"an answer", Kind::current, waits, 8 * megabyte, "Timeout was reached"},
                          Case{"a body", Kind::current, tricklesBeforeTheBody, 8 * megabyte, "Timeout was reached"},
                          Case{"the rest of an answer", Kind::current, stopsWithinTheAnswer, 2, "Timeout was reached"},
                          Case{"a final answer", Kind::current, repeating("", "HTTP/1.1 102 Processing\r\n\r\n", 50ms),
                               2, "Timeout was reached"}}) {
        SCOPED_TRACE(c.what);
        const ScriptedTlsServer server(certificate(), c.script, c.kind);
        const auto outcome = outcomeOf(*sessionFor(server), request(largeBody(c.bodySize), 300ms));
        EXPECT_FALSE(outcome.hasResponse);
        EXPECT_THAT(outcome.error, HasSubstr(c.error));
    }
}

// The kernel's buffer holds most of this body: only what the server acknowledges tells that it still moves.
TEST(CurlUrlSession, GoesOnAsLongAsTheServerTakesInTheBody) {
    const auto body = largeBody(4 * megabyte);
    const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) {
        client.readHead();
        for (std::size_t taken = 0; taken < body->size(); taken += 64'000) {
            client.read(std::min<std::size_t>(64'000, body->size() - taken));
            std::this_thread::sleep_for(50ms);
        }
        client.write(okay);
    });
    EXPECT_EQ(outcomeOf(*sessionFor(server), request(body, 1s)).status, 200);
}

TEST(CurlUrlSession, CutsOffAnAnswerThatDoesNotEnd) {
    const ScriptedTlsServer flood(certificate(), repeating("HTTP/1.1 200 OK\r\n\r\n", std::string(100'000, 'x'), 0ms));
    EXPECT_EQ(outcomeOf(*sessionFor(flood), request(bodyOf("{}"), 10min)).status, 200);
    const ScriptedTlsServer trickle(certificate(), repeating("HTTP/1.1 200 OK\r\n\r\n", "x", 20ms));
    EXPECT_EQ(outcomeOf(*sessionFor(trickle), request(bodyOf("{}"), 1s)).status, 200);
}

TEST(CurlUrlSession, AStalledTransferHoldsNobodyUp) {
    std::latch stalled(1);
    const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) {
        if (client.readHead().starts_with("POST /stall ")) {
            stalled.count_down();
            client.waitForEnd();
        }
        client.read(2);
        client.write(okay);
    });
    const auto session = sessionFor(server);
    PostedRequest first(*session, request(bodyOf("{}"), 60s, "https://backend.example/stall"));
    stalled.wait();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(outcomeOf(*session).status, 200);
    EXPECT_FALSE(first.isOver());
}

TEST(CurlUrlSession, CallsHandlersOnItsThreadAndReleasesThemThere) {
    const ScriptedTlsServer server(certificate(), answering(okay));
    const auto session = sessionFor(server);
    const std::thread::id delivery = outcomeOf(*session).thread;
    EXPECT_NE(delivery, std::this_thread::get_id());

    std::promise<std::thread::id> released;
    auto body = bodyOf("{}");
    const std::weak_ptr<const ByteBuffer> observed = body;
    std::shared_ptr<void> token(nullptr, [&](void*) { released.set_value(std::this_thread::get_id()); });
    session->dataTask(request(std::move(body)), [token = std::move(token)](const auto&, const auto&) {})->resume();
    EXPECT_EQ(released.get_future().get(), delivery);
    EXPECT_TRUE(observed.expired());
}

TEST(CurlUrlSession, TheHostsSignalsAreNotForItsThread) {
    CurlUrlSession session;
    std::promise<bool> blocked;
    const auto task = session.dataTask(refusedRequest(), [&](const auto&, const auto&) {
        sigset_t signals;
        pthread_sigmask(SIG_BLOCK, nullptr, &signals);
        blocked.set_value(sigismember(&signals, SIGTERM) == 1 && sigismember(&signals, SIGPIPE) == 1 &&
                          sigismember(&signals, SIGSEGV) == 0);
    });
    task->resume();
    EXPECT_TRUE(blocked.get_future().get());
}

TEST(CurlUrlSession, AnswersAtOnceWhenTheSystemRefusesAThread) {
    pthread_attr_t usual;
    pthread_attr_t impossible;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&impossible);
    pthread_attr_setstacksize(&impossible, std::size_t{1} << 46U);  // more than an address space holds

    CurlUrlSession session;
    pthread_setattr_default_np(&impossible);
    PostedRequest refused(session, request(bodyOf("{}")));
    pthread_setattr_default_np(&usual);
    pthread_attr_destroy(&impossible);
    pthread_attr_destroy(&usual);
    ASSERT_TRUE(refused.isOver());
    const auto outcome = refused.outcome();
    EXPECT_EQ(outcome.thread, std::this_thread::get_id());
    EXPECT_THAT(outcome.error, HasSubstr("unavailable"));
}

TEST(CurlUrlSession, ATaskIsSentOnceItIsResumedAndOnlyOnceAlsoByAHandler) {
    const ScriptedTlsServer server(certificate(), answering(okay));
    const auto session = sessionFor(server);
    std::promise<std::shared_ptr<PostedRequest>> second;
    int calls = 0;
    const auto never = session->dataTask(request(bodyOf("{}")), [&](const auto&, const auto&) { ++calls; });
    const auto twice = session->dataTask(request(bodyOf("{}")), [&](const auto&, const auto&) {
        ++calls;
        second.set_value(std::make_shared<PostedRequest>(*session, request(bodyOf("{}"))));
    });
    twice->resume();
    twice->resume();
    EXPECT_EQ(second.get_future().get()->outcome().status, 200);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(server.clients(), 2);
}

TEST(CurlUrlSession, DestroyedItDropsWhatIsUnfinished) {
    std::latch stalled(1);
    const ScriptedTlsServer server(certificate(), [&](TlsConnection& client) {
        client.readHead();
        stalled.count_down();
        client.waitForEnd();
    });
    auto session = sessionFor(server);
    bool called = false;
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> handler = token;
    auto call = [&called, token = std::move(token)](const auto&, const auto&) { called = true; };
    session->dataTask(request(bodyOf("{}")), std::move(call))->resume();
    const auto left = session->dataTask(request(bodyOf("{}")), [&called](const auto&, const auto&) { called = true; });
    stalled.wait();
    session.reset();
    left->resume();
    EXPECT_TRUE(handler.expired());
    EXPECT_FALSE(called);
    EXPECT_EQ(server.clients(), 1);
}

TEST(CurlUrlSessionDeathTest, AThrowingHandlerTerminates) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto post = [] {
        CurlUrlSession session;
        const auto handler = [](const auto&, const auto&) { throw std::runtime_error("thrown by a host"); };
        session.dataTask(refusedRequest(), handler)->resume();
        std::this_thread::sleep_for(1min);
    };
    EXPECT_DEATH(post(), "thrown by a host");
}

}  // namespace tarvex::platform
