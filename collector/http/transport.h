#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <cstddef>
#include <memory>

#include "collector/http/tls_context.h"

namespace tarvex::collector {

/// The bytes of a connection, with TLS or without. To be used on the strand of its socket. Operations throw
/// `boost::system::system_error`.
class Transport {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~Transport() = default;

    /// What is under way, or begun later, fails at this time.
    virtual void expireAt(Clock::time_point time) = 0;
    virtual boost::asio::awaitable<void> shakeHands() = 0;
    virtual boost::asio::awaitable<std::size_t> read(boost::asio::mutable_buffer into) = 0;
    virtual boost::asio::awaitable<std::size_t> write(boost::asio::const_buffer bytes) = 0;
    /// Tells the client that nothing more comes, and waits until it says or does the same, at most to the deadline.
    virtual boost::asio::awaitable<void> takeLeave() = 0;
    /// Reads find the end from now on.
    virtual void endReading() = 0;
    virtual void close() = 0;
    /// Closes it so that the client takes it for a failure.
    virtual void reset() = 0;
};

/// `context`: null without TLS.
std::unique_ptr<Transport> makeTransport(boost::asio::ip::tcp::socket socket, const TlsContext& context);

}  // namespace tarvex::collector
