#pragma once

#include <atomic>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "collector/http/body_reception.h"
#include "collector/http/head_parser.h"
#include "collector/http/piece_threads.h"
#include "collector/http/server.h"
#include "collector/http/transport.h"

namespace tarvex::collector {

/// What all connections of a server share.
struct ServerState {
    explicit ServerState(HttpServer::Options chosen) : options(std::move(chosen)) {}

    HttpServer::Options options;
    std::atomic<bool> isStopping = false;
    /// Whoever may still answer keeps it, so that an answer after the server's end does no harm.
    std::shared_ptr<boost::asio::io_context> loop = std::make_shared<boost::asio::io_context>(2);
    std::unique_ptr<PieceThreads> pieceThreads = std::make_unique<PieceThreads>(32);
};

/// Serves one client, one request after the other. Runs on the strand of its socket; `retire` and `abort` are
/// thread-safe.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    /// `state` must outlive `run`.
    Connection(ServerState& state, boost::asio::any_io_executor strand, std::unique_ptr<Transport> transport,
               std::string peer);

    /// Returns when the connection is closed.
    boost::asio::awaitable<void> run();
    /// Ends it as soon as no request is under way.
    void retire();
    /// Ends it now.
    void abort();

private:
    using Clock = Transport::Clock;
    template <typename Result>
    using Awaitable = boost::asio::awaitable<Result>;

    Awaitable<void> serve();
    Awaitable<void> serveRequest();
    Awaitable<std::expected<IncomingHead, std::optional<int>>> readHead();
    std::optional<Response> refusalOf(const IncomingHead& incoming) const;
    Awaitable<void> inviteBody(const IncomingHead& incoming);
    Awaitable<bool> readBody(BodyReception& body, std::uint64_t length);
    Awaitable<Response> handle(Request request);
    Awaitable<void> answer(Response response);
    Awaitable<void> answerInPieces(Response response);
    Awaitable<void> write(std::string_view bytes);
    Awaitable<void> leave();

    template <typename Value>
    Awaitable<Value> await(std::optional<Value>& value);
    template <typename Value>
    std::function<void(Value)> mailbox(std::optional<Value> Connection::* place);

    const HttpServer::Limits& limits() const { return state_.options.limits; }

    ServerState& state_;
    boost::asio::any_io_executor strand_;
    std::unique_ptr<Transport> transport_;
    std::string peer_;
    boost::beast::flat_buffer received_;  ///< and not used yet

    bool isIdle_ = true;  ///< no request is under way
    // Of the request under way:
    bool keepsAlive_ = false;
    bool isOld_ = false;   ///< HTTP/1.0
    bool isHead_ = false;  ///< the method
    std::optional<Response> response_;
    std::optional<std::optional<std::string>> piece_;

    boost::asio::steady_timer wake_;  ///< cancelled when something has come for the coroutine
    bool isAborted_ = false;
};

}  // namespace tarvex::collector
