#include "collector/http/server.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/system/system_error.hpp>

#include <condition_variable>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "collector/http/admission.h"
#include "collector/http/connection.h"
#include "collector/http/server_thread.h"
#include "collector/http/tls_context.h"

namespace tarvex::collector {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

constexpr auto acceptPause = std::chrono::milliseconds(100);

TlsContext loadContext(const std::optional<HttpServer::Certificate>& certificate) {
    if (!certificate) return nullptr;
    auto context = loadTlsContext(*certificate);
    if (!context) throw std::runtime_error(context.error());
    return *context;
}

}  // namespace

class HttpServer::Implementation {
public:
    explicit Implementation(Options options)
        : state_(std::move(options)), context_(loadContext(state_.options.certificate)), acceptor_(makeStrand()) {
        const TemporaryFile probe(state_.options.spool);
        listen();
        asio::co_spawn(acceptor_.get_executor(), accept(), asio::detached);
        startThreads();
    }

    ~Implementation() { stop(std::chrono::milliseconds(0)); }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    std::uint16_t port() const { return port_; }

    std::optional<std::string> reloadCertificate() {
        if (!state_.options.certificate) return std::nullopt;
        auto context = loadTlsContext(*state_.options.certificate);
        if (!context) return context.error();
        const std::lock_guard lock(mutex_);
        context_ = *std::move(context);
        return std::nullopt;
    }

    void stop(std::chrono::milliseconds patience) {
        const std::lock_guard stopping(stopMutex_);
        endAccepting();
        std::unique_lock lock(mutex_);
        const auto haveEnded = [this] { return connections_.empty(); };
        for (const auto& connection : connections_)
            connection->retire();
        changed_.wait_for(lock, patience, haveEnded);
        for (const auto& connection : connections_)
            connection->abort();
        changed_.wait(lock, haveEnded);
        lock.unlock();
        state_.pieceThreads.reset();
        workGuard_.reset();
        for (std::jthread& thread : threads_)
            if (thread.joinable()) thread.join();
    }

private:
    asio::any_io_executor makeStrand() const { return asio::make_strand(*state_.loop); }

    void listen() {
        const Options& options = state_.options;
        error_code error;
        const auto address = asio::ip::make_address(options.address, error);
        if (error) throw std::runtime_error("\"" + options.address + "\" is not an IP address.");
        try {
            const tcp::endpoint endpoint(address, options.port);
            acceptor_.open(endpoint.protocol());
            acceptor_.set_option(tcp::acceptor::reuse_address(true));
            acceptor_.bind(endpoint);
            acceptor_.listen();
            port_ = acceptor_.local_endpoint().port();
        } catch (const boost::system::system_error& failure) {
            throw std::runtime_error("Port " + std::to_string(options.port) + " of " + options.address +
                                     " cannot be listened on: " + failure.code().message() + ".");
        }
    }

    void startThreads() {
        try {
            for (std::jthread& thread : threads_)
                thread = std::jthread([this] { work(); });
        } catch (const std::system_error&) {
            state_.loop->stop();
            throw;
        }
    }

    asio::awaitable<void> accept() {
        while (!state_.isStopping) {
            try {
                co_await acceptOne();
            } catch (const std::exception&) {  // it has left already, say, or there is no memory
                continue;
            }
        }
    }

    asio::awaitable<void> acceptOne() {
        error_code error;
        tcp::socket socket =
            co_await acceptor_.async_accept(makeStrand(), asio::redirect_error(asio::use_awaitable, error));
        if (!error) {
            admit(std::move(socket));
        } else if (error != asio::error::connection_aborted && !state_.isStopping) {
            // No descriptor is left, say: trying at once would only burn the processor.
            asio::steady_timer pause(acceptor_.get_executor(), acceptPause);
            co_await pause.async_wait(asio::redirect_error(asio::use_awaitable, error));
        }
    }

    void admit(tcp::socket socket) {
        socket.set_option(tcp::no_delay(true));
        const Peer peer = peerOf(socket.remote_endpoint().address().to_string());
        const std::lock_guard lock(mutex_);
        if (state_.isStopping || !admission_.enter(peer)) return;
        try {
            begin(std::move(socket), peer);
        } catch (...) {
            admission_.leave(peer);
            throw;
        }
    }

    void begin(tcp::socket socket, const Peer& peer) {
        auto strand = socket.get_executor();
        auto transport = makeTransport(std::move(socket), context_);
        auto connection = std::make_shared<Connection>(state_, strand, std::move(transport), peer.address);
        connections_.insert(connection);
        asio::co_spawn(
            strand, [connection] { return connection->run(); },
            [this, connection, peer](const std::exception_ptr&) { forget(connection, peer); });
    }

    void forget(const std::shared_ptr<Connection>& connection, const Peer& peer) {
        const std::lock_guard lock(mutex_);
        connections_.erase(connection);
        admission_.leave(peer);
        changed_.notify_all();
    }

    void endAccepting() {
        const std::lock_guard lock(mutex_);
        state_.isStopping = true;
        asio::post(acceptor_.get_executor(), [this] { acceptor_.close(); });
    }

    void work() {
        beginServerThread("collector-http");
        while (true) {
            try {
                state_.loop->run();
                return;
            } catch (const std::exception&) {  // one connection's trouble
                continue;
            }
        }
    }

    ServerState state_;
    asio::executor_work_guard<asio::io_context::executor_type> workGuard_{state_.loop->get_executor()};
    std::mutex stopMutex_;
    std::mutex mutex_;  ///< of what follows
    std::condition_variable changed_;
    std::set<std::shared_ptr<Connection>> connections_;
    Admission admission_{state_.options.limits};
    TlsContext context_;

    tcp::acceptor acceptor_;
    std::uint16_t port_ = 0;
    std::array<std::jthread, 2> threads_;
};

HttpServer::HttpServer(Options options) : implementation_(std::make_unique<Implementation>(std::move(options))) {}

HttpServer::~HttpServer() = default;

std::uint16_t HttpServer::port() const {
    return implementation_->port();
}

std::optional<std::string> HttpServer::reloadCertificate() {
    return implementation_->reloadCertificate();
}

void HttpServer::stop(std::chrono::milliseconds patience) {
    implementation_->stop(patience);
}

}  // namespace tarvex::collector
