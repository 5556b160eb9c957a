#pragma once

#include <openssl/ssl.h>

#include <expected>
#include <memory>
#include <string>

#include "collector/http/server.h"

namespace tarvex::collector {

using TlsContext = std::shared_ptr<SSL_CTX>;

/// For servers, of TLS 1.2 and later. The error is one sentence.
std::expected<TlsContext, std::string> loadTlsContext(const HttpServer::Certificate& certificate);

}  // namespace tarvex::collector
