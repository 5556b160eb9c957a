#pragma once

#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/shared/handle.h"
#include "self_signed_certificate.h"

namespace tarvex::test {

/// The server's end of one TLS connection. Every operation ends early when the client goes away or the server stops.
class TlsConnection {
public:
    /// Shakes hands over `socket` as `context` says.
    TlsConnection(SSL_CTX* context, int socket)
        : ssl_(SSL_new(context)), established_(SSL_set_fd(ssl_.get(), socket) == 1 && SSL_accept(ssl_.get()) == 1) {}

    bool isEstablished() const { return established_; }

    /// A request's head, the empty line included.
    std::string readHead() {
        std::string head;
        for (std::string next; !head.ends_with("\r\n\r\n") && !(next = read(1)).empty();)
            head += next;
        return head;
    }

    /// The next `count` bytes, fewer at the end of the connection.
    std::string read(std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t filled = 0;
        std::size_t arrived = 0;
        while (filled < count && SSL_read_ex(ssl_.get(), bytes.data() + filled, count - filled, &arrived) == 1)
            filled += arrived;
        bytes.resize(filled);
        return bytes;
    }

    /// False once nothing more can be written.
    bool write(std::string_view text) {
        std::size_t written = 0;
        return SSL_write_ex(ssl_.get(), text.data(), text.size(), &written) == 1;
    }

    void waitForEnd() {
        while (!read(std::size_t{1} << 16U).empty()) {
        }
    }

    /// Ends the connection as TLS demands. Without this it just breaks off.
    void close() { SSL_shutdown(ssl_.get()); }

private:
    platform::Handle<SSL, SSL_free> ssl_;
    bool established_;
};

/// A server on loopback that treats each client as its script says, each on a thread of its own.
class ScriptedTlsServer {
public:
    using Script = std::function<void(TlsConnection&)>;

    /// A silent server accepts connections and never sends anything.
    enum class Kind : std::uint8_t { current, onlyTls11, silent };

    ScriptedTlsServer(const SelfSignedCertificate& certificate, Script script, Kind kind = Kind::current)
        : script_(std::move(script)), kind_(kind), context_(SSL_CTX_new(TLS_server_method())) {
        if (SSL_CTX_use_certificate(context_.get(), certificate.certificate()) != 1 ||
            SSL_CTX_use_PrivateKey(context_.get(), certificate.key()) != 1)
            throw std::runtime_error("the certificate cannot be used");
        if (kind == Kind::onlyTls11) {
            SSL_CTX_set_min_proto_version(context_.get(), TLS1_1_VERSION);
            SSL_CTX_set_max_proto_version(context_.get(), TLS1_1_VERSION);
            SSL_CTX_set_cipher_list(context_.get(), "ALL:@SECLEVEL=0");
        }
        listen();
        acceptor_ = std::jthread([this] { accept(); });
    }

    ~ScriptedTlsServer() {
        shutdown(listener_, SHUT_RDWR);
        acceptor_.join();
        {
            const std::scoped_lock lock(mutex_);
            for (const int socket : sockets_)
                shutdown(socket, SHUT_RDWR);
        }
        conversations_.clear();
        close(listener_);
    }

    std::uint16_t port() const { return port_; }

    /// The number of clients that have connected and shaken hands.
    int clients() const { return clients_; }

private:
    void listen() {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        // A small window, so that a client notices a server that reads slowly.
        const int window = 32 * 1024;
        setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
        sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        socklen_t length = sizeof address;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener_, 16) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::runtime_error("no loopback port");
        port_ = ntohs(address.sin_port);
    }

    void accept() {
        while (true) {
            const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0) return;
            const std::scoped_lock lock(mutex_);
            sockets_.push_back(socket);
            conversations_.emplace_back([this, socket] { serve(socket); });
        }
    }

    void serve(int socket) {
        // Only on the server's own threads: a signal that the client's code caused would end the test.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        if (kind_ == Kind::silent) {
            char ignored = 0;
            while (recv(socket, &ignored, 1, 0) > 0) {
            }
        } else if (TlsConnection connection(context_.get(), socket); connection.isEstablished()) {
            ++clients_;
            script_(connection);
        }
        const std::scoped_lock lock(mutex_);
        std::erase(sockets_, socket);
        close(socket);
    }

    Script script_;
    Kind kind_;
    platform::Handle<SSL_CTX, SSL_CTX_free> context_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<int> clients_ = 0;
    std::mutex mutex_;
    std::vector<int> sockets_;
    std::vector<std::jthread> conversations_;
    std::jthread acceptor_;
};

}  // namespace tarvex::test
