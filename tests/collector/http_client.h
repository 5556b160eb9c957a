#pragma once

#include <arpa/inet.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarvex::collector::test {

struct Answer {
    int status = 0;
    std::map<std::string, std::string> fields;  ///< names as sent
    std::string body;
    bool isWhole = false;
};

/// One connection to a server on loopback, whose every byte the test decides.
class HttpClient {
public:
    enum class Security : std::uint8_t { none, tls };

    /// Throws when nobody accepts, or the handshake fails. `newest`: the newest version of TLS that it speaks.
    explicit HttpClient(std::uint16_t port, Security security = Security::none, int newest = TLS1_3_VERSION) {
        ::signal(SIGPIPE, SIG_IGN);
        connect(port);
        if (security == Security::tls) shakeHands(newest);
    }
    ~HttpClient() { close(); }
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    void close() {
        session_.reset();
        if (socket_ >= 0) ::close(socket_);
        socket_ = -1;
    }

    /// False when the server does not take it all.
    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto sent = session_ ? SSL_write(session_.get(), bytes.data(), static_cast<int>(bytes.size()))
                                       : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    /// The next answer; its status is 0 when none comes. `hasBody`: not to a HEAD.
    Answer receive(bool hasBody = true) {
        Answer answer;
        while (unread_.find("\r\n\r\n") == std::string::npos)
            if (!fill()) return answer;
        parseHead(answer);
        if (answer.status == 100 || answer.status == 204 || !hasBody) {
            answer.isWhole = true;
        } else if (answer.fields.contains("Transfer-Encoding")) {
            answer.isWhole = receiveChunks(answer.body);
        } else if (const auto length = answer.fields.find("Content-Length"); length != answer.fields.end()) {
            answer.isWhole = take(std::stoul(length->second), answer.body);
        } else {
            while (fill()) {
            }
            answer.isWhole = !wasReset_;
            answer.body = std::move(unread_);
        }
        return answer;
    }

    Answer exchange(std::string_view request) {
        send(request);
        return receive();
    }

    /// Whether the server ends it within the time, sending nothing more.
    bool isClosed(std::chrono::milliseconds patience = std::chrono::seconds(10)) {
        setPatience(patience);
        const bool isEnd = !fill() && !isTimeout_;
        setPatience(std::chrono::seconds(20));
        return isEnd;
    }

    /// Whether the certificate that it saw is for this host.
    bool sawCertificateOf(const char* host) const {
        X509* certificate = SSL_get1_peer_certificate(session_.get());
        const bool isFor = X509_check_host(certificate, host, 0, 0, nullptr) == 1;
        X509_free(certificate);
        return isFor;
    }

    int descriptor() const { return socket_; }

private:
    struct FreeSession {
        void operator()(SSL* session) const { SSL_free(session); }
    };

    void connect(std::uint16_t port) {
        socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        setPatience(std::chrono::seconds(20));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            close();
            throw std::runtime_error("nobody listens");
        }
    }

    void shakeHands(int newest) {
        const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
        SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
        SSL_CTX_set_max_proto_version(context.get(), newest);
        SSL_CTX_set_cipher_list(context.get(), "ALL:@SECLEVEL=0");  // what the old versions need
        session_.reset(SSL_new(context.get()));
        SSL_set_fd(session_.get(), socket_);
        if (SSL_connect(session_.get()) == 1) return;
        close();
        throw std::runtime_error("the handshake failed");
    }

    void setPatience(std::chrono::milliseconds patience) const {
        const timeval time{.tv_sec = patience.count() / 1000, .tv_usec = patience.count() % 1000 * 1000};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
    }

    bool fill() {
        std::array<char, 64 * 1024> block{};
        errno = 0;
        const auto count = session_ ? SSL_read(session_.get(), block.data(), static_cast<int>(block.size()))
                                    : ::recv(socket_, block.data(), block.size(), 0);
        isTimeout_ = count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        wasReset_ = count < 0;
        if (count > 0) unread_.append(block.data(), static_cast<std::size_t>(count));
        return count > 0;
    }

    bool take(std::size_t count, std::string& into) {
        while (unread_.size() < count)
            if (!fill()) break;
        const bool isWhole = unread_.size() >= count;
        into += unread_.substr(0, count);
        unread_.erase(0, count);
        return isWhole;
    }

    std::optional<std::string> takeLine() {
        while (unread_.find("\r\n") == std::string::npos)
            if (!fill()) return std::nullopt;
        std::string line = unread_.substr(0, unread_.find("\r\n"));
        unread_.erase(0, line.size() + 2);
        return line;
    }

    void parseHead(Answer& answer) {
        answer.status = std::stoi(takeLine()->substr(9, 3));
        for (auto line = takeLine(); !line->empty(); line = takeLine())
            answer.fields[line->substr(0, line->find(": "))] = line->substr(line->find(": ") + 2);
    }

    bool receiveChunks(std::string& body) {
        while (const auto line = takeLine()) {
            std::size_t size = 0;
            std::from_chars(line->data(), line->data() + line->size(), size, 16);
            std::string chunk;
            if (!take(size + 2, chunk)) return false;
            body += chunk.substr(0, size);
            if (size == 0) return true;
        }
        return false;
    }

    int socket_ = -1;
    std::unique_ptr<SSL, FreeSession> session_;
    std::string unread_;
    bool isTimeout_ = false;
    bool wasReset_ = false;
};

}  // namespace tarvex::collector::test
