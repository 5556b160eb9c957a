#include "platform/curl/scripted_tls_server.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

namespace tarvex::test {

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

ScriptedTlsServer::ScriptedTlsServer(const collector::SelfSignedCertificate& certificate, Script script, Kind kind)
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

ScriptedTlsServer::~ScriptedTlsServer() {
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

void ScriptedTlsServer::listen() {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0) throw std::runtime_error("no socket");
    // A small window, so that a client notices a server that reads slowly.
    const int window = 32 * 1024;
    setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener_, 16) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("no loopback port");
    port_ = ntohs(address.sin_port);
}

void ScriptedTlsServer::accept() {
    while (true) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) return;
        const std::scoped_lock lock(mutex_);
        sockets_.push_back(socket);
        conversations_.emplace_back([this, socket] { serve(socket); });
    }
}

void ScriptedTlsServer::serve(int socket) {
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

}  // namespace tarvex::test
