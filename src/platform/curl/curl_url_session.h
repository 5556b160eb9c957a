#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tarvex/platform/url_session.h"

namespace tarvex::platform {

class CurlTransferThreads;

/// The parts of the transport that a test may replace; everything else about it is fixed. Production passes none.
struct CurlTransportOptions {
    struct ConnectTo {
        std::string host;
        std::uint16_t port;
        std::string targetHost;
        std::uint16_t targetPort;
    };

    /// Trusted instead of the system's certificates.
    std::optional<std::string> trustedCertificatesPem;

    /// Another place for the connections to one host and port, past any proxy. The certificate must still name the
    /// host.
    std::optional<ConnectTo> connectTo;
};

/// URL loading on libcurl: HTTPS only, over HTTP/1.1, with certificate and host name always verified against the
/// system's certificates, redirects not followed, and nothing sent but the request's own headers and the two that HTTP
/// demands (Host, Content-Length).
///
/// Thread-safe. The variables `https_proxy`, `all_proxy` and `no_proxy` are respected; no variable weakens the
/// verification.
///
/// A transfer ends with an error when nothing has moved for the request's time-out (noticed up to a sixtieth of it
/// late), connecting included, with curl's own text. So does one that was answered with success before the server had
/// taken the whole body. Any other answer is delivered with its status.
///
/// May be destroyed on any thread except the delivery thread, at any time: unfinished transfers are then dropped, and
/// the remaining tasks do nothing.
class CurlUrlSession final : public UrlSession {
public:
    CurlUrlSession();
    explicit CurlUrlSession(CurlTransportOptions options);
    ~CurlUrlSession() override;

    [[nodiscard]] std::unique_ptr<UrlSessionTask> dataTask(UrlRequest request, CompletionHandler handler) override;

private:
    CurlTransportOptions options_;
    std::shared_ptr<CurlTransferThreads> threads_;
};

}  // namespace tarvex::platform
