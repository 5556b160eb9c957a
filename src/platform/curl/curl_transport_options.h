#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tarvex::platform {

/// What a test may bend about the transport; everything else about it is fixed. Production passes none of it.
struct CurlTransportOptions {
    struct ConnectTo {
        std::string host;
        std::uint16_t port;
        std::string targetHost;
        std::uint16_t targetPort;
    };

    /// Trusted instead of the system's certificates.
    std::optional<std::string> trustedCertificatesPem;

    /// Where connections to one host and port go instead, past any proxy. The certificate must still name the host.
    std::optional<ConnectTo> connectTo;
};

}  // namespace tarvex::platform
