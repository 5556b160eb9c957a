#include "collector/http/tls_context.h"

#include <openssl/err.h>

namespace tarvex::collector {
namespace {

std::unexpected<std::string> failure(const std::string& what) {
    const unsigned long error = ERR_peek_error();
    const char* reason = ERR_SYSTEM_ERROR(error) ? nullptr : ERR_reason_error_string(error);
    ERR_clear_error();
    return std::unexpected(what + (reason == nullptr ? "" : std::string(" (") + reason + ")") + ".");
}

}  // namespace

std::expected<TlsContext, std::string> loadTlsContext(const HttpServer::Certificate& certificate) {
    ERR_clear_error();
    TlsContext context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1)
        return failure("TLS cannot be set up");
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    // Clients keep their sessions themselves.
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    // Nobody is there to type a password.
    SSL_CTX_set_default_passwd_cb(context.get(), [](char*, int, int, void*) { return -1; });
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate.chain.c_str()) != 1)
        return failure("The certificate " + certificate.chain.string() + " cannot be read");
    if (SSL_CTX_use_PrivateKey_file(context.get(), certificate.key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context.get()) != 1)
        return failure("The key " + certificate.key.string() + " cannot be read, or does not fit the certificate " +
                       certificate.chain.string());
    return context;
}

}  // namespace tarvex::collector
