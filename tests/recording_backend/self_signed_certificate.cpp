#include "self_signed_certificate.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <stdexcept>

namespace tarvex::test {

namespace {

void check(bool succeeded, const char* what) {
    if (succeeded) return;
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
    throw std::runtime_error(std::string("Cannot make a certificate: ") + what + ": " + reason.data());
}

void addExtension(X509* certificate, int name, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, name, value.c_str());
    check(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1, value.c_str());
    X509_EXTENSION_free(extension);
}

}  // namespace

SelfSignedCertificate::SelfSignedCertificate(const std::string& host, Validity validity)
    : key_(EVP_EC_gen("P-256")), certificate_(X509_new()) {
    check(key_ && certificate_, "the key");
    X509* certificate = certificate_.get();
    check(X509_set_version(certificate, X509_VERSION_3) == 1, "the version");
    check(ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1) == 1, "the serial number");
    X509_gmtime_adj(X509_getm_notBefore(certificate), validity.from.count());
    X509_gmtime_adj(X509_getm_notAfter(certificate), validity.until.count());
    check(X509_set_pubkey(certificate, key_.get()) == 1, "the public key");

    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("Recording backend");
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1, "the subject");
    check(X509_set_issuer_name(certificate, name) == 1, "the issuer");
    addExtension(certificate, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, NID_subject_alt_name, "DNS:" + host);
    check(X509_sign(certificate, key_.get(), EVP_sha256()) > 0, "the signature");
}

std::string SelfSignedCertificate::pem() const {
    const std::unique_ptr<BIO, decltype([](BIO* bio) { BIO_free(bio); })> memory(BIO_new(BIO_s_mem()));
    check(memory && PEM_write_bio_X509(memory.get(), certificate_.get()) == 1, "its text");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

}  // namespace tarvex::test
