#include "collector/http/connection.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <exception>
#include <span>
#include <system_error>
#include <vector>

#include "collector/http/answer.h"

namespace tarvex::collector {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

constexpr std::size_t headBlock = 4UZ * 1024;
constexpr std::size_t bodyBlock = 64UZ * 1024;

/// Takes the answer of a request; the first one counts. When everybody has let go of it without one, it answers itself.
class Responder {
public:
    explicit Responder(std::function<void(Response)> deliver) : deliver_(std::move(deliver)) {}
    ~Responder() {
        try {
            respond(plainAnswer(500));
        } catch (const std::exception&) {  // no memory: the connection waits until the server stops
            return;
        }
    }
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    void respond(Response response) {
        if (!hasResponded_.exchange(true)) deliver_(std::move(response));
    }

private:
    std::function<void(Response)> deliver_;
    std::atomic<bool> hasResponded_ = false;
};

bool needsLength(std::string_view method) {
    return method == "POST" || method == "PUT" || method == "PATCH";
}

/// Of what follows its head, it is not certain that it is the next request.
bool mayHaveBody(const IncomingHead& incoming) {
    if (incoming.hasTransferEncoding) return true;
    return incoming.length ? *incoming.length > 0 : needsLength(incoming.head.method);
}

bool expectsInvitation(std::string_view expectation) {
    return std::ranges::equal(expectation, std::string_view("100-continue"), {},
                              [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
}

bool store(BodyReception& body, std::span<const std::byte> bytes) {
    try {
        body.append(bytes);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace

Connection::Connection(ServerState& state, asio::any_io_executor strand, std::unique_ptr<Transport> transport,
                       std::string peer)
    : state_(state),
      strand_(std::move(strand)),
      transport_(std::move(transport)),
      peer_(std::move(peer)),
      wake_(strand_) {}

asio::awaitable<void> Connection::run() {
    try {
        transport_->expireAt(Clock::now() + limits().handshake);
        co_await transport_->shakeHands();
        co_await serve();
        co_await leave();
        transport_->close();
    } catch (const std::exception&) {  // nobody is there to be told
        transport_->close();
    }
}

asio::awaitable<void> Connection::serve() {
    try {
        keepsAlive_ = true;
        while (keepsAlive_)
            co_await serveRequest();
    } catch (const boost::system::system_error&) {  // the client left, or was too slow
        keepsAlive_ = false;
    }
}

void Connection::retire() {
    asio::post(strand_, [self = shared_from_this()] {
        if (self->isIdle_) self->transport_->endReading();
    });
}

void Connection::abort() {
    asio::post(strand_, [self = shared_from_this()] {
        self->isAborted_ = true;
        self->transport_->close();
        self->wake_.cancel();
    });
}

asio::awaitable<void> Connection::serveRequest() {
    isIdle_ = true;
    auto incoming = co_await readHead();
    isIdle_ = false;
    keepsAlive_ = incoming && incoming->keepsAlive && !incoming->isOld;
    isOld_ = incoming && incoming->isOld;
    isHead_ = incoming && incoming->head.method == "HEAD";
    if (!incoming) {
        if (const auto status = incoming.error()) co_await answer(plainAnswer(*status));
        co_return;
    }

    incoming->head.peer = peer_;
    if (auto refusal = refusalOf(*incoming)) {
        if (mayHaveBody(*incoming)) keepsAlive_ = false;
        co_await answer(*std::move(refusal));
        co_return;
    }

    co_await inviteBody(*incoming);
    BodyReception reception(state_.options.spool);
    if (!co_await readBody(reception, incoming->length.value_or(0))) {
        keepsAlive_ = false;
        co_await answer(plainAnswer(503));
        co_return;
    }
    auto [file, body] = reception.finish();
    Request request{.head = std::move(incoming->head), .file = std::move(file), .body = body};
    Response response = co_await handle(std::move(request));
    co_await answer(std::move(response));
}

/// The error is the status to answer with; absent, the server stops.
asio::awaitable<std::expected<IncomingHead, std::optional<int>>> Connection::readHead() {
    HeadParser parser(limits().header);
    transport_->expireAt(Clock::now() + limits().idle);
    while (true) {
        if (state_.isStopping) co_return std::unexpected(std::nullopt);
        const auto bytes = received_.cdata();
        if (bytes.size() > 0) received_.consume(parser.take({static_cast<const char*>(bytes.data()), bytes.size()}));
        if (parser.refusal()) co_return std::unexpected(parser.refusal());
        if (parser.isDone()) break;
        const auto space = received_.prepare(headBlock);
        received_.commit(co_await transport_->read(space));
    }
    auto head = parser.head();
    if (!head) co_return std::unexpected(400);
    co_return *std::move(head);
}

std::optional<Response> Connection::refusalOf(const IncomingHead& incoming) const {
    try {
        const auto& screen = state_.options.screen;
        if (auto response = screen ? screen(incoming.head) : std::nullopt) return response;
    } catch (const std::exception&) {
        return plainAnswer(500);
    }
    if (incoming.hasTransferEncoding || (!incoming.length && needsLength(incoming.head.method)))
        return plainAnswer(411);
    if (incoming.length > limits().body) return plainAnswer(413);
    const auto expectation = incoming.head.field("expect");
    if (!expectation.empty() && !expectsInvitation(expectation)) return plainAnswer(417);
    return std::nullopt;
}

asio::awaitable<void> Connection::inviteBody(const IncomingHead& incoming) {
    const bool isAwaited = !isOld_ && incoming.length.value_or(0) > 0 && received_.size() == 0;
    if (isAwaited && !incoming.head.field("expect").empty()) co_await write("HTTP/1.1 100 Continue\r\n\r\n");
}

/// False when the disk does not take it.
asio::awaitable<bool> Connection::readBody(BodyReception& body, std::uint64_t length) {
    const auto first = std::min<std::uint64_t>(received_.size(), length);
    const auto* bytes = static_cast<const std::byte*>(received_.cdata().data());
    if (!store(body, {bytes, first})) co_return false;
    received_.consume(first);

    auto missing = length - first;
    std::vector<std::byte> block(std::min<std::uint64_t>(missing, bodyBlock));
    std::size_t filled = 0;
    LeastRate rate(limits().leastBytesPerSecond, limits().rateWindow, Clock::now());
    while (missing > 0) {
        transport_->expireAt(std::min(Clock::now() + limits().idle, rate.deadline()));
        const auto space = std::min<std::uint64_t>(missing, block.size() - filled);
        const auto count = co_await transport_->read(asio::buffer(block.data() + filled, space));
        rate.add(count, Clock::now());
        filled += count;
        missing -= count;
        if (filled < block.size() && missing > 0) continue;
        if (!store(body, std::span(block).first(filled))) co_return false;
        filled = 0;
    }
    co_return true;
}

asio::awaitable<Response> Connection::handle(Request request) {
    auto responder = std::make_shared<Responder>(mailbox(&Connection::response_));
    try {
        state_.options.handle(std::move(request), [responder = std::move(responder)](Response response) {
            responder->respond(std::move(response));
        });
    } catch (const std::exception&) {  // the responder answers
        keepsAlive_ = false;
    }
    co_return co_await await(response_);
}

asio::awaitable<void> Connection::answer(Response response) {
    if (state_.isStopping) keepsAlive_ = false;
    const bool hasBody = !isHead_ && !isBodiless(response.status);
    if (response.pieces && hasBody) {
        co_await answerInPieces(std::move(response));
        co_return;
    }
    std::string text = headOf(response, {.isChunked = response.pieces && !isOld_, .endsConnection = !keepsAlive_});
    if (hasBody && response.body.size() <= bodyBlock) text += response.body;
    co_await write(text);
    if (hasBody && response.body.size() > bodyBlock) co_await write(response.body);
}

asio::awaitable<void> Connection::answerInPieces(Response response) {
    const std::string head = headOf(response, {.isChunked = !isOld_, .endsConnection = !keepsAlive_});
    const auto body = state_.pieceThreads->start(std::move(response.pieces), mailbox(&Connection::piece_));
    if (!body) {
        co_await answer(plainAnswer(503));
        co_return;
    }
    co_await write(head);
    while (true) {
        body->request();
        const auto piece = co_await await(piece_);
        if (!piece) {
            keepsAlive_ = false;
            transport_->reset();
            co_return;
        }
        const std::string text = isOld_ ? *piece : chunkOf(*piece);
        co_await write(text);
        if (piece->empty()) co_return;
    }
}

/// The whole of it has its time as well as each step, or a client that reads a little now and then would stay for ever.
asio::awaitable<void> Connection::write(std::string_view bytes) {
    const std::uint64_t seconds = bytes.size() / std::max<std::uint32_t>(limits().leastBytesPerSecond, 1);
    const auto deadline = Clock::now() + limits().idle + std::chrono::seconds(seconds);
    while (!bytes.empty()) {
        transport_->expireAt(std::min(Clock::now() + limits().idle, deadline));
        bytes.remove_prefix(co_await transport_->write(asio::buffer(bytes)));
    }
}

asio::awaitable<void> Connection::leave() {
    isIdle_ = true;
    const auto patience = state_.isStopping ? 200ms : 2000ms;
    transport_->expireAt(Clock::now() + std::min(patience, limits().idle));
    co_await transport_->takeLeave();
}

template <typename Value>
asio::awaitable<Value> Connection::await(std::optional<Value>& value) {
    while (true) {
        if (auto taken = std::exchange(value, std::nullopt)) co_return *std::move(taken);
        if (isAborted_) throw boost::system::system_error(asio::error::operation_aborted);
        boost::system::error_code cancelled;
        wake_.expires_at(Clock::time_point::max());
        co_await wake_.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
    }
}

/// Puts a value where the coroutine awaits it; on any thread, also after the connection has gone.
template <typename Value>
std::function<void(Value)> Connection::mailbox(std::optional<Value> Connection::* place) {
    return [loop = state_.loop, connection = weak_from_this(), place](Value value) {
        const auto self = connection.lock();
        if (!self) return;
        asio::post(self->strand_, [self, place, value = std::move(value)]() mutable {
            (*self).*place = std::move(value);
            self->wake_.cancel();
        });
    };
}

}  // namespace tarvex::collector
