#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "collector/store/document.h"
#include "collector/store/temporary_file.h"

namespace tarvex::collector {

/// What a request says before its body.
struct RequestHead {
    std::string method;
    std::string path;                                         ///< percent-decoded; begins with a slash
    std::vector<std::pair<std::string, std::string>> query;   ///< decoded, in the order of the request
    std::vector<std::pair<std::string, std::string>> fields;  ///< names in lower case
    std::string peer;                                         ///< the address that it came from

    /// The value of a field, or of a parameter of the query; empty without one. The first of several.
    std::string_view field(std::string_view name) const;
    std::string_view parameter(std::string_view name) const;
};

/// A request whose body has come whole.
struct Request {
    RequestHead head;
    TemporaryFile file;  ///< the body
    Body body;
};

struct Response {
    int status = 200;
    std::string contentType = "text/plain; charset=utf-8";
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> fields = {};
    /// Where set, gives the body instead, piece by piece, an empty one at the end; called on a thread of its own, and
    /// may throw, which cuts the body short so that the client notices.
    std::function<std::string()> pieces = nullptr;
};

/// An HTTP/1.1 server. Thread-safe.
class HttpServer {
public:
    struct Certificate {
        std::filesystem::path chain;  ///< PEM
        std::filesystem::path key;    ///< PEM
    };
    struct Limits {
        std::uint64_t body = 512ULL * 1024 * 1024;  ///< bytes; more is answered 413
        std::uint32_t header = 16 * 1024;           ///< bytes; more is answered 431
        std::chrono::milliseconds handshake{10'000};
        std::chrono::milliseconds idle{60'000};     ///< without a byte in either direction; also of a whole head
        std::uint32_t leastBytesPerSecond = 1'000;  ///< of a body, over any `rateWindow`
        std::chrono::milliseconds rateWindow{30'000};
        int connections = 2'000;           ///< more are closed at once
        int connectionsOfAnAddress = 500;  ///< or of a /64 network of IPv6; loopback is exempt
    };
    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0;                                 ///< a free one
        std::optional<Certificate> certificate = std::nullopt;  ///< plain HTTP without one
        Limits limits = {};
        std::filesystem::path spool = {};  ///< directory of the bodies' temporary files; must exist
        /// Decides from the head alone; what it returns is the answer, and the body is not taken. Without it, every
        /// body is. Called on a thread of the server, and must not wait.
        std::function<std::optional<Response>(const RequestHead&)> screen = nullptr;
        /// Answers with a call of `respond`, once, on any thread, also later; when all copies of it go without a call,
        /// the answer is 500. Called on a thread of the server, and must not wait.
        std::function<void(Request, std::function<void(Response)> respond)> handle = nullptr;
    };

    /// Listens from now on. Throws an exception whose text says what is wrong.
    explicit HttpServer(Options options);
    /// As `stop` without patience.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    std::uint16_t port() const;

    /// Reads the certificate's files again; connections that stand keep theirs. One sentence when they are unusable:
    /// the old ones stay.
    std::optional<std::string> reloadCertificate();

    /// Takes no more connections and requests, and waits for the answers under way, at most for `patience`; then cuts
    /// them. A call of `pieces` under way is waited for in any case. Afterwards nothing of `Options` is called. Not to
    /// be called on a thread of the server.
    void stop(std::chrono::milliseconds patience);

private:
    class Implementation;

    std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarvex::collector
