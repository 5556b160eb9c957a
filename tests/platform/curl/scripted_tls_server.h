#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
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
    std::string readHead();

    /// The next `count` bytes, fewer at the end of the connection.
    std::string read(std::size_t count);

    /// False once nothing more can be written.
    bool write(std::string_view text);

    /// Reads until the client goes away.
    void waitForEnd();

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

    ScriptedTlsServer(const collector::SelfSignedCertificate& certificate, Script script, Kind kind = Kind::current);
    ~ScriptedTlsServer();
    ScriptedTlsServer(const ScriptedTlsServer&) = delete;
    ScriptedTlsServer& operator=(const ScriptedTlsServer&) = delete;

    std::uint16_t port() const { return port_; }

    /// The number of clients that have connected and shaken hands.
    int clients() const { return clients_; }

private:
    void listen();
    void accept();
    void serve(int socket);

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
