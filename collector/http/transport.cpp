#include "collector/http/transport.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/system/system_error.hpp>

#include <array>
#include <new>
#include <type_traits>
#include <utility>

namespace tarvex::collector {
namespace {

namespace asio = boost::asio;
using boost::beast::tcp_stream;
using boost::system::error_code;

/// What the client sends still goes unread: if it stayed in the socket, closing it would cut off the last answer.
asio::awaitable<void> drain(tcp_stream& stream) {
    error_code error;
    if (stream.socket().shutdown(asio::socket_base::shutdown_send, error)) co_return;
    std::array<char, 4096> unread{};
    while (!error)
        co_await stream.async_read_some(asio::buffer(unread), asio::redirect_error(asio::use_awaitable, error));
}

/// What is the same with TLS and without.
template <typename Stream>
class StreamTransport : public Transport {
public:
    template <typename... Arguments>
    explicit StreamTransport(Arguments&&... arguments) : stream_(std::forward<Arguments>(arguments)...) {}

    void expireAt(Clock::time_point time) override { tcp().expires_at(time); }

    asio::awaitable<std::size_t> read(asio::mutable_buffer into) override {
        error_code error;
        const auto count = co_await stream_.async_read_some(into, asio::redirect_error(asio::use_awaitable, error));
        isReadable_ = !isEnd(error);
        if (error) throw boost::system::system_error(error);
        co_return count;
    }

    asio::awaitable<std::size_t> write(asio::const_buffer bytes) override {
        co_return co_await stream_.async_write_some(bytes, asio::use_awaitable);
    }

    void endReading() override {
        error_code ignored;
        static_cast<void>(tcp().socket().shutdown(asio::socket_base::shutdown_receive, ignored));
    }

    void close() override { tcp().close(); }

    void reset() override {
        error_code ignored;
        static_cast<void>(tcp().socket().set_option(asio::socket_base::linger(true, 0), ignored));
        tcp().close();
    }

protected:
    Stream& stream() { return stream_; }
    tcp_stream& tcp() { return boost::beast::get_lowest_layer(stream_); }
    bool isReadable() const { return isReadable_; }

    /// Whether it says that the socket is at its end.
    static bool isEnd(error_code error) {
        constexpr bool isPlain = std::is_same_v<Stream, tcp_stream>;
        return error && (isPlain || error != asio::error::eof);  // with TLS, that is the end of the session
    }

private:
    Stream stream_;
    bool isReadable_ = true;  ///< else nobody would ever say that a read is done: the end is told once
};

class PlainTransport final : public StreamTransport<tcp_stream> {
public:
    using StreamTransport::StreamTransport;

    asio::awaitable<void> shakeHands() override { co_return; }
    asio::awaitable<void> takeLeave() override {
        if (isReadable()) co_await drain(tcp());
    }
};

using TlsStream = asio::ssl::stream<tcp_stream>;

class TlsTransport final : public StreamTransport<TlsStream> {
public:
    using StreamTransport::StreamTransport;

    asio::awaitable<void> shakeHands() override {
        co_await stream().async_handshake(asio::ssl::stream_base::server, asio::use_awaitable);
    }

    asio::awaitable<void> takeLeave() override {
        if (!isReadable()) co_return;
        error_code error;
        co_await stream().async_shutdown(asio::redirect_error(asio::use_awaitable, error));
        const bool isOver = error == asio::error::eof || error == asio::ssl::error::stream_truncated ||
                            error == boost::beast::error::timeout;
        if (!isOver) co_await drain(tcp());
    }
};

}  // namespace

std::unique_ptr<Transport> makeTransport(asio::ip::tcp::socket socket, const TlsContext& context) {
    if (!context) return std::make_unique<PlainTransport>(std::move(socket));
    SSL* session = SSL_new(context.get());
    if (session == nullptr) throw std::bad_alloc();
    return std::make_unique<TlsTransport>(tcp_stream(std::move(socket)), session);
}

}  // namespace tarvex::collector
