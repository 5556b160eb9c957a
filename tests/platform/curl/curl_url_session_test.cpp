#include "platform/curl/curl_url_session.h"

#include <pthread.h>

#include "platform/curl/posted_request.h"
#include "platform/curl/scripted_tls_server.h"
#include "platform/curl/transfer_progress.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using std::chrono::milliseconds;
using test::SelfSignedCertificate;
using namespace test;
using Server = ScriptedTlsServer;
using Kind = Server::Kind;
using Script = Server::Script;

constexpr std::size_t megabyte = 1'000'000;
constexpr const char* okay = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

const SelfSignedCertificate& certificate() {
    static const SelfSignedCertificate certificate("backend.example");
    return certificate;
}

std::unique_ptr<CurlUrlSession> sessionFor(std::uint16_t port, std::optional<std::string> trusted) {
    return std::make_unique<CurlUrlSession>(CurlTransportOptions{
        .trustedCertificatesPem = std::move(trusted),
        .connectTo = CurlTransportOptions::ConnectTo{
            .host = "backend.example", .port = 443, .targetHost = "127.0.0.1", .targetPort = port}});
}

PostedRequest::Outcome outcomeOf(CurlUrlSession& session, UrlRequest request = test::request(bodyOf("{}"))) {
    return PostedRequest(session, std::move(request)).outcome();
}

PostedRequest::Outcome outcomeOf(const Server& server, UrlRequest request = test::request(bodyOf("{}"))) {
    return outcomeOf(*sessionFor(server.port(), certificate().pem()), std::move(request));
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

// Sends the piece again and again, until the client goes away, and counts how often.
Script repeating(std::string first, std::string piece, milliseconds pause, std::size_t* times = nullptr) {
    return [=](TlsConnection& client) {
        readRequest(client);
        client.write(first);
        for (std::size_t sent = 1; client.write(piece); ++sent) {
            if (times != nullptr) *times = sent;
            std::this_thread::sleep_for(pause);
        }
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

TEST(CurlUrlSession, SendsTheRequestByteForByteAndNothingElse) {
    for (const auto& body : {bodyOf("{}"), bodyOf(""), largeBody(64 * megabyte)}) {
        std::string head;
        bool identical = false;
        const Server server(certificate(), [&](TlsConnection& client) {
            head = client.readHead();
            identical = client.read(body->size()) == body->view();
            client.write(okay);
        });
        EXPECT_EQ(outcomeOf(server, request(body)).status, 200);
        EXPECT_TRUE(identical);
        EXPECT_EQ(head,
                  "POST /tracking HTTP/1.1\r\nHost: backend.example\r\nContent-Type: application/json\r\n"
                  "Content-Length: " +
                      std::to_string(body->size()) + "\r\n\r\n");
    }
}

TEST(CurlUrlSession, DeliversTheStatusOfTheFinalAnswerOrCurlsErrorText) {
    using Case = std::pair<Script, int>;
    const std::string filler = "X-Filler: " + std::string(1000, 'x') + "\r\n";
    for (int number = 0;
         const auto& [script, status] :
         {Case{answering("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"), 200},
          Case{answering("HTTP/1.1 200 OK\r\n\r\nas long as the connection"), 200},
          Case{answering("HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n"), 201},
          Case{answering("HTTP/1.1 301 Moved\r\nLocation: https://backend.example/else\r\n\r\n"), 301},
          Case{answering("HTTP/1.1 401 No\r\nWWW-Authenticate: Basic\r\nContent-Length: 0\r\n\r\n"), 401},
          Case{answering("HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 204 No Content\r\n\r\n"), 204}, Case{readRequest, 0},
          Case{[](TlsConnection& client) { client.readHead(); }, 0},  // broken off within the body
          Case{answering("220 mail.example ESMTP\r\n"), 0}, Case{answering("HTTP/1.1 100 Continue\r\n\r\n"), 0},
          Case{answering("HTTP/1.1 101 Switching Protocols\r\n\r\nhello"), 0},
          Case{answering("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n1234"), 0},
          Case{repeating("HTTP/1.1 200 OK\r\n", filler, 0ms), 0}}) {
        SCOPED_TRACE(number++);
        const Server server(certificate(), script);
        const auto outcome = outcomeOf(server);
        EXPECT_EQ(outcome.status.value_or(0), status) << "0: none";
        EXPECT_EQ(outcome.hasResponse, status != 0);
        EXPECT_EQ(outcome.error.empty(), status != 0);
        EXPECT_EQ(server.clients(), 1) << "nothing is followed, and nothing is sent twice";
    }
}

TEST(CurlUrlSession, TalksOnlyToAServerAndAProxyWhoseCertificateAndProtocolAreRight) {
    using Validity = SelfSignedCertificate::Validity;
    using Case = std::tuple<const char*, const char*, Validity, bool, Kind>;
    const TemporaryDirectory directory;
    const auto file = directory.path() / "certificate.pem";
    for (const bool proxy : {false, true}) {
        const char* const right = proxy ? "localhost" : "backend.example";
        for (const auto& [fault, host, validity, trusts, kind] :
             {Case{"", right, {}, true, Kind::current}, Case{"host", "other.example", {}, true, Kind::current},
              Case{"expired", right, {-48h, -24h}, true, Kind::current},
              Case{"early", right, {24h, 48h}, true, Kind::current},
              Case{"not trusted", right, {}, false, Kind::current},  // the variables below do not count
              Case{"protocol", right, {}, true, Kind::onlyTls11}}) {
            SCOPED_TRACE(std::string(fault) + (proxy ? ", a proxy" : ", a server"));
            const SelfSignedCertificate presented(host, validity);
            writeFile(file, presented.pem());
            for (const char* variable : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"})
                setenv(variable, file.c_str(), 1);
            setenv("SSL_CERT_DIR", directory.path().c_str(), 1);
            const auto trusted = trusts ? std::optional(presented.pem()) : std::nullopt;
            std::string received;
            const auto script = [&](TlsConnection& client) {
                received = client.readHead();
                client.write(okay);
            };
            PostedRequest::Outcome outcome;
            {
                const Server server(presented, script, kind);
                setenv("https_proxy", ("https://localhost:" + std::to_string(server.port())).c_str(), 1);
                auto session = sessionFor(server.port(), trusted);
                if (proxy) session = std::make_unique<CurlUrlSession>(CurlTransportOptions{trusted, std::nullopt});
                outcome = outcomeOf(*session, request(bodyOf("")));
            }
            const bool accepted = *fault == '\0';
            EXPECT_EQ(outcome.hasResponse, accepted && !proxy) << "this proxy's tunnel leads nowhere";
            EXPECT_TRUE(outcome.hasResponse || !outcome.error.empty());
            const std::string line = proxy ? "CONNECT backend.example:443 HTTP/1.1" : "POST /tracking HTTP/1.1";
            EXPECT_EQ(received.substr(0, received.find("\r\n")), accepted ? line : "") << "else it receives nothing";
        }
    }
}

TEST(CurlUrlSession, AnEarlyAnswerCountsUnlessItIsSuccess) {
    const auto body = largeBody(60 * megabyte);
    using Case = std::pair<std::string, int>;
    for (const auto& [head, status] : {Case{"200 OK\r\nConnection: close", 0},
                                       Case{"201 Created\r\nConnection: close", 201}, Case{"413 Too Large", 413}}) {
        const Server server(certificate(), [&](TlsConnection& client) {
            client.readHead();
            client.read(20'000);
            client.write("HTTP/1.1 " + head + "\r\nContent-Length: 0\r\n\r\n");
            client.close();
            client.waitForEnd();
        });
        const auto outcome = outcomeOf(server, request(body));
        EXPECT_EQ(outcome.status.value_or(0), status) << head;
        EXPECT_EQ(outcome.error, status != 0 ? "" : "The server answered before the whole body was sent");
    }
}

TEST(CurlUrlSession, EndsWhenNothingMoves) {
    const auto waits = [](TlsConnection& client) { client.waitForEnd(); };
    // An answer that trickles in does not keep an upload alive, neither within the body nor after it.
    const auto trickles = repeating("", "HTTP/1.1 102 Processing\r\n\r\n", 50ms);
    const auto stopsWithinTheAnswer = [](TlsConnection& client) {
        readRequest(client);
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n12");
        client.waitForEnd();
    };
    using Case = std::tuple<const char*, Kind, Script, std::size_t>;
    for (const auto& [missing, kind, script, bodySize] :
         {Case{"a handshake", Kind::silent, waits, 2}, Case{"an answer", Kind::current, waits, 8 * megabyte},
          Case{"a body", Kind::current, trickles, 8 * megabyte}, Case{"a final answer", Kind::current, trickles, 2},
          Case{"the rest of an answer", Kind::current, stopsWithinTheAnswer, 2}}) {
        SCOPED_TRACE(missing);
        const Server server(certificate(), script, kind);
        const auto outcome = outcomeOf(server, request(largeBody(bodySize), 300ms));
        EXPECT_FALSE(outcome.hasResponse);
        EXPECT_NE(outcome.error, "") << "the server waits for ever: only a timeout ends this";
    }
}

// The kernel's buffer holds most of this body: only the server's acknowledgements show that it still moves.
TEST(CurlUrlSession, GoesOnAsLongAsTheServerTakesInTheBody) {
    const auto body = largeBody(4 * megabyte);
    const Server server(certificate(), [&](TlsConnection& client) {
        client.readHead();
        for (std::size_t taken = 0; taken < body->size(); taken += 64'000) {
            client.read(std::min<std::size_t>(64'000, body->size() - taken));
            std::this_thread::sleep_for(50ms);
        }
        client.write(okay);
    });
    EXPECT_EQ(outcomeOf(server, request(body, 1s)).status, 200);
}

TEST(CurlUrlSession, CutsOffAnAnswerThatDoesNotEnd) {
    const std::string head = "HTTP/1.1 200 OK\r\n\r\n";
    std::size_t sentMegabytes = 0;
    {
        const Server flood(certificate(), repeating(head, std::string(megabyte, 'x'), 0ms, &sentMegabytes));
        EXPECT_EQ(outcomeOf(flood, request(bodyOf("{}"), 10min)).status, 200);
    }
    EXPECT_LT(sentMegabytes, 20U) << "a mebibyte, and the content of the kernel's buffers";
    const Server trickle(certificate(), repeating(head, "x", 20ms));
    EXPECT_EQ(outcomeOf(trickle, request(bodyOf("{}"), 1s)).status, 200);
}

TEST(TransferPatience, EndsInTimeWhateverTheMomentOfTheLastProgress) {
    using Verdict = TransferPatience::Verdict;
    for (auto last = 0ms; last < 3s; last += 100ms) {
        const TransferPatience::Clock::time_point begin;
        auto now = begin;
        TransferPatience patience(60s, begin);
        while (patience.judge({{now < begin + last ? 0U : 1U, false}}, now) == Verdict::goOn)
            now = patience.nextLook();
        EXPECT_TRUE(now - begin >= last + 60s && now - begin <= last + 61s) << last.count();
        const auto answered = now;
        for (std::uint64_t moved = 2; patience.judge({{moved, true}}, now) != Verdict::answerTooLong; ++moved)
            now = patience.nextLook();
        EXPECT_TRUE(now - answered >= 120s && now - answered <= 121s) << last.count();
    }
}

// One thread drives the transfers, and another one calls the handlers.
TEST(CurlUrlSession, TransfersGoOnWhileAHandlerRunsAndEndWithTheSession) {
    std::counting_semaphore<> stalled(0);
    std::counting_semaphore<> closed(0);
    const Server server(certificate(), [&](TlsConnection& client) {
        if (client.readHead().starts_with("POST /stall ")) {
            stalled.release();
        } else {
            client.read(megabyte);
            client.write(okay);
        }
        client.waitForEnd();
        closed.release();
    });
    auto session = sessionFor(server.port(), certificate().pem());
    const auto body = largeBody(megabyte);
    const auto stallFor = [&](milliseconds timeout) { return request(body, timeout, "https://backend.example/stall"); };
    PostedRequest waiting(*session, stallFor(10min));
    stalled.acquire();

    std::promise<std::thread::id> entered;
    std::latch left(1);
    std::deque<PostedRequest> fromTheHandler;
    const auto task = session->dataTask(request(body), [&](const auto&, const auto&) {
        fromTheHandler.emplace_back(*session, stallFor(500ms));
        fromTheHandler.emplace_back(*session, request(body));
        entered.set_value(std::this_thread::get_id());
        left.wait();
    });
    task->resume();
    task->resume();
    const std::thread::id delivery = entered.get_future().get();
    for (int transfers = 0; transfers < 3; ++transfers)
        EXPECT_TRUE(closed.try_acquire_for(1min)) << "each connection is closed as soon as its transfer is over";
    EXPECT_FALSE(fromTheHandler[0].isOver() || fromTheHandler[1].isOver()) << "one handler at a time";
    left.count_down();
    const auto late = fromTheHandler[0].outcome();
    EXPECT_NE(late.error, "");
    EXPECT_EQ(late.thread, delivery);
    EXPECT_EQ(fromTheHandler[1].outcome().status, 200);

    EXPECT_FALSE(waiting.isOver());
    const auto tooLate = session->dataTask(request(body), [](const auto&, const auto&) { FAIL(); });
    session.reset();
    tooLate->resume();
    EXPECT_THROW(waiting.outcome(), std::future_error) << "released without a call";
    EXPECT_EQ(server.clients(), 4);
}

TEST(CurlUrlSession, CallsAndReleasesHandlersOnAThreadThatTheHostsSignalsDoNotReach) {
    CurlUrlSession session;
    const auto refusedRequest = [] { return request(bodyOf("{}"), 60s, "http://backend.example/tracking"); };
    const auto outcome = outcomeOf(session, refusedRequest());
    EXPECT_THAT(outcome.error, HasSubstr("http"));
    EXPECT_NE(outcome.thread, std::this_thread::get_id());

    bool blocked = false;
    std::promise<std::thread::id> released;
    auto refused = refusedRequest();
    const std::weak_ptr<const ByteBuffer> body = refused.body;
    std::shared_ptr<void> token(nullptr, [&](void*) { released.set_value(std::this_thread::get_id()); });
    auto look = [&blocked, token = std::move(token)](const auto&, const auto&) {
        sigset_t signals;
        pthread_sigmask(SIG_BLOCK, nullptr, &signals);
        blocked = sigismember(&signals, SIGTERM) == 1 && sigismember(&signals, SIGPIPE) == 1 &&
                  sigismember(&signals, SIGSEGV) == 0;
    };
    session.dataTask(std::move(refused), std::move(look))->resume();
    EXPECT_EQ(released.get_future().get(), outcome.thread);
    EXPECT_TRUE(blocked);
    EXPECT_TRUE(body.expired());
}

TEST(CurlUrlSession, CallsTheHandlerAtOnceWhenTheSystemRefusesAThread) {
    pthread_attr_t usual;
    pthread_attr_t impossible;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&impossible);
    pthread_attr_setstacksize(&impossible, std::size_t{1} << 46U);  // more than an address space holds

    CurlUrlSession session;
    pthread_setattr_default_np(&impossible);
    PostedRequest refused(session, request(bodyOf("{}")));
    pthread_setattr_default_np(&usual);
    ASSERT_TRUE(refused.isOver());
    const auto outcome = refused.outcome();
    EXPECT_EQ(outcome.thread, std::this_thread::get_id());
    EXPECT_THAT(outcome.error, HasSubstr("unavailable"));
}

}  // namespace
}  // namespace tarvex::platform
