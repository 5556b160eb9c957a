#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace tarvex::test {

/// The server's end of one TLS connection. Every operation ends early when the client goes away or the server stops.
class TlsConnection {
public:
    /// Shakes hands over `socket` as `context` says.
    TlsConnection(SSL_CTX* context, int socket);

    bool isEstablished() const { return established_; }

    /// A request's head, the empty line included.
    std::string readHead();

    /// The next `count` bytes, fewer at the end of the connection.
    std::string read(std::size_t count);

    /// False once nothing more can be written.
    bool write(std::string_view text);

    /// Reads until the client goes away.
    void waitForEnd();

    /// Says good-bye, as TLS wants it. Without this a connection just breaks off.
    void close();

private:
    struct Free {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    std::unique_ptr<SSL, Free> ssl_;
    bool established_;
};

}  // namespace tarvex::test
