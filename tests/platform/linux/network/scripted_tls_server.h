#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/network/tls_connection.h"
#include "self_signed_certificate.h"

namespace tarvex::test {

/// A server on loopback that treats each client as its script says, each on a thread of its own.
class ScriptedTlsServer {
public:
    using Script = std::function<void(TlsConnection&)>;

    enum class Kind : std::uint8_t { current, onlyTls11, silent };

    /// A silent server accepts connections and never says anything.
    ScriptedTlsServer(const collector::SelfSignedCertificate& certificate, Script script, Kind kind = Kind::current);
    ~ScriptedTlsServer();
    ScriptedTlsServer(const ScriptedTlsServer&) = delete;
    ScriptedTlsServer& operator=(const ScriptedTlsServer&) = delete;

    std::uint16_t port() const { return port_; }

    /// How many clients have connected and shaken hands.
    int clients() const { return clients_; }

private:
    struct Free {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };

    void listen();
    void accept();
    void serve(int socket);

    Script script_;
    Kind kind_;
    std::unique_ptr<SSL_CTX, Free> context_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<int> clients_ = 0;
    std::mutex mutex_;
    std::vector<int> sockets_;
    std::vector<std::jthread> conversations_;
    std::jthread acceptor_;
};

}  // namespace tarvex::test
