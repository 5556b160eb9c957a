#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <chrono>
#include <memory>
#include <string>

namespace tarvex::test {

/// A fresh key and a certificate that it signed for itself. The key stays in memory.
class SelfSignedCertificate {
public:
    struct Validity {
        std::chrono::seconds from{0};  ///< counted from now
        std::chrono::seconds until = std::chrono::days(1);
    };

    /// Throws `std::runtime_error` when OpenSSL fails.
    explicit SelfSignedCertificate(const std::string& host, Validity validity);
    explicit SelfSignedCertificate(const std::string& host) : SelfSignedCertificate(host, Validity{}) {}

    X509* certificate() const { return certificate_.get(); }
    EVP_PKEY* key() const { return key_.get(); }
    std::string pem() const;

private:
    struct Free {
        void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
        void operator()(X509* certificate) const { X509_free(certificate); }
    };

    std::unique_ptr<EVP_PKEY, Free> key_;
    std::unique_ptr<X509, Free> certificate_;
};

}  // namespace tarvex::test
