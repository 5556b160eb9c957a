#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarvex/export.h"
#include "tarvex/platform/url_session.h"

namespace tarvex::testing {

/// The library's real transport, except that it trusts the certificates of `certificatePem` alone and that connections
/// to the research backend's host, port 443, go to `port` on 127.0.0.1, past any proxy.
///
/// The certificate must name the backend's host and be valid: it is verified as in production. For a host's own tests
/// and demonstrations; install it with `Platform::setUrlSession`.
TARVEX_EXPORT std::unique_ptr<platform::UrlSession> makeLoopbackUrlSession(std::uint16_t port,
                                                                           std::string certificatePem);

}  // namespace tarvex::testing
