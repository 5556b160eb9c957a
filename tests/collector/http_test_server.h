#pragma once

#include <openssl/evp.h>

#include "collector/http/self_signed_certificate.h"
#include "collector/http/server.h"
#include "http_client.h"
#include "prelude.h"

namespace tarvex::collector::test {

inline Digest digestOf(std::string_view text) {
    Digest digest{};
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return digest;
}

inline std::string contentsOf(const Request& request) {
    std::string contents(request.file.size() + 1, '\0');
    contents.resize(request.file.read(0, std::as_writable_bytes(std::span(contents))));
    return contents;
}

inline std::string post(std::string_view body, std::string_view fields = "") {
    return std::string("POST /tracking HTTP/1.1\r\nHost: localhost\r\n")
        .append(fields)
        .append("Content-Length: " + std::to_string(body.size()) + "\r\n\r\n")
        .append(body);
}

inline std::string get(std::string_view target, std::string_view method = "GET") {
    return std::string(method).append(" ").append(target).append(" HTTP/1.1\r\nHost: localhost\r\n\r\n");
}

/// A server that answers each request with the size of its body, unless the test says otherwise.
class TestServer {
public:
    using Security = HttpClient::Security;

    explicit TestServer(
        Security security = Security::none,
        const std::function<void(HttpServer::Options&)>& change = [](HttpServer::Options&) {})
        : security_(security) {
        HttpServer::Options options{.spool = directory_.path()};
        options.screen = [this](const RequestHead& head) {
            ++screened;
            return head.path == "/refused" ? std::optional(Response{.status = 401, .body = "no"}) : std::nullopt;
        };
        options.handle = [this](Request request, const std::function<void(Response)>& respond) {
            ++handled;
            respond({.body = std::to_string(request.body.bytes)});
        };
        if (security == Security::tls) {
            options.certificate = certificate();
            makeSelfSignedCertificate(certificate(), {"localhost", "127.0.0.1"});
        }
        change(options);
        server.emplace(std::move(options));
    }

    HttpServer::Certificate certificate() const {
        return {.chain = directory_.path() / "chain.pem", .key = directory_.path() / "key.pem"};
    }

    std::unique_ptr<HttpClient> connect(int newest = TLS1_3_VERSION) const {
        return std::make_unique<HttpClient>(server->port(), security_, newest);
    }

    /// The answer to one request on a connection of its own.
    Answer ask(std::string_view request) const { return connect()->exchange(request); }

private:
    TemporaryDirectory directory_;
    Security security_;

public:
    std::atomic<int> screened = 0;
    std::atomic<int> handled = 0;
    std::optional<HttpServer> server;
};

}  // namespace tarvex::collector::test
