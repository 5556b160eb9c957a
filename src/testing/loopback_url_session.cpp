#include "tarvex/testing/loopback_url_session.h"

#include <utility>

#include "platform/curl/curl_url_session.h"

namespace tarvex::testing {

std::unique_ptr<platform::UrlSession> makeLoopbackUrlSession(std::uint16_t port, std::string certificatePem) {
    return std::make_unique<platform::CurlUrlSession>(platform::CurlTransportOptions{
        .trustedCertificatesPem = std::move(certificatePem),
        .connectTo = platform::CurlTransportOptions::ConnectTo{
            .host = TARVEX_BACKEND_HOST, .port = 443, .targetHost = "127.0.0.1", .targetPort = port}});
}

}  // namespace tarvex::testing
