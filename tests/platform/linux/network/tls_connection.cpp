#include "platform/linux/network/tls_connection.h"

namespace tarvex::test {

TlsConnection::TlsConnection(SSL_CTX* context, int socket)
    : ssl_(SSL_new(context)), established_(SSL_set_fd(ssl_.get(), socket) == 1 && SSL_accept(ssl_.get()) == 1) {}

std::string TlsConnection::readHead() {
    std::string head;
    while (!head.ends_with("\r\n\r\n")) {
        const std::string next = read(1);
        if (next.empty()) break;
        head += next;
    }
    return head;
}

std::string TlsConnection::read(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t filled = 0;
    std::size_t arrived = 0;
    while (filled < count && SSL_read_ex(ssl_.get(), bytes.data() + filled, count - filled, &arrived) == 1)
        filled += arrived;
    bytes.resize(filled);
    return bytes;
}

bool TlsConnection::write(std::string_view text) {
    std::size_t written = 0;
    return SSL_write_ex(ssl_.get(), text.data(), text.size(), &written) == 1;
}

void TlsConnection::waitForEnd() {
    while (!read(std::size_t{1} << 16U).empty()) {
    }
}

void TlsConnection::close() {
    SSL_shutdown(ssl_.get());
}

}  // namespace tarvex::test
