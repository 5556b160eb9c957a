#include "collector/http/self_signed_certificate.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarvex::collector {
namespace {

template <auto function>
struct Free {
    void operator()(auto* object) const { function(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Free<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Free<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Free<BIO_free>>;

void check(bool succeeded, const std::string& what) {
    if (succeeded) return;
    ERR_clear_error();
    throw std::runtime_error("A certificate cannot be made: OpenSSL does not take " + what + ".");
}

void addExtension(X509* certificate, int name, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, name, value.c_str()));
    check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "\"" + value + "\"");
}

bool isAddress(const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET, host.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), address.data()) == 1;
}

std::string alternativeNames(const std::vector<std::string>& hosts) {
    std::string names;
    for (const std::string& host : hosts) {
        // In a list of names, these would begin something else.
        check(!host.empty() && host.find_first_of(",;\r\n ") == std::string::npos, "the name \"" + host + "\"");
        names += (names.empty() ? "" : ",") + std::string(isAddress(host) ? "IP:" : "DNS:") + host;
    }
    check(!names.empty(), "a certificate without a name");
    return names;
}

/// Browsers mind two certificates of one issuer with the same number.
void setSerialNumber(X509* certificate) {
    std::uint64_t number = 0;
    check(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof(number)) == 1 &&
              ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1U) == 1,
          "the serial number");
}

Certificate sign(EVP_PKEY* key, const std::vector<std::string>& hosts) {
    using namespace std::chrono;
    Certificate owner(X509_new());
    X509* certificate = owner.get();
    check(certificate != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1, "the version");
    setSerialNumber(certificate);
    // A device whose clock is a little slow takes it as well.
    X509_gmtime_adj(X509_getm_notBefore(certificate), -seconds(days(1)).count());
    X509_gmtime_adj(X509_getm_notAfter(certificate), seconds(days(3653)).count());
    check(X509_set_pubkey(certificate, key) == 1, "the key");

    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("tarvex-collector");
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1, "the subject");
    check(X509_set_issuer_name(certificate, name) == 1, "the issuer");
    addExtension(certificate, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, NID_ext_key_usage, "serverAuth");
    addExtension(certificate, NID_subject_alt_name, alternativeNames(hosts));
    check(X509_sign(certificate, key, EVP_sha256()) > 0, "the signature");
    return owner;
}

std::string contentsOf(BIO* memory) {
    char* bytes = nullptr;
    const auto size = BIO_get_mem_data(memory, &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

/// A file that takes its name when it is whole.
class UnfinishedFile {
public:
    UnfinishedFile(const std::filesystem::path& path, std::string_view contents, mode_t mode)
        : path_(path), name_(path.string() + ".XXXXXX"), descriptor_(::mkostemp(name_.data(), O_CLOEXEC)) {
        if (descriptor_ < 0) fail();
        try {
            write(contents);
            if (::fchmod(descriptor_, mode) != 0 || ::fsync(descriptor_) != 0) fail();
        } catch (const std::exception&) {
            discard();
            throw;
        }
    }
    ~UnfinishedFile() { discard(); }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    void finish() {
        backup_ = name_ + ".old";
        if (::link(path_.c_str(), backup_.c_str()) != 0) backup_.clear();
        if (::rename(name_.c_str(), path_.c_str()) != 0) fail();
        name_.clear();
    }

    /// What was there before comes back.
    void takeBack() {
        const int status = backup_.empty() ? ::unlink(path_.c_str()) : ::rename(backup_.c_str(), path_.c_str());
        if (status == 0) backup_.clear();
    }

private:
    void write(std::string_view contents) const {
        while (!contents.empty()) {
            const auto written = ::write(descriptor_, contents.data(), contents.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) fail();
            contents.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    [[noreturn]] void fail() const {
        throw std::runtime_error("The file " + path_.string() +
                                 " cannot be written: " + std::generic_category().message(errno) + ".");
    }

    void discard() {
        if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
        for (const std::string& leftOver : {name_, backup_})
            if (!leftOver.empty()) ::unlink(leftOver.c_str());
    }

    std::filesystem::path path_;
    std::string name_;    ///< until it is finished
    std::string backup_;  ///< of the file that it replaced
    int descriptor_;
};

}  // namespace

void makeSelfSignedCertificate(const HttpServer::Certificate& files, const std::vector<std::string>& hosts) {
    const Key key(EVP_EC_gen("P-256"));
    check(key != nullptr, "the curve");
    const Certificate certificate = sign(key.get(), hosts);
    const Memory keyText(BIO_new(BIO_s_mem()));
    const Memory certificateText(BIO_new(BIO_s_mem()));
    check(keyText && PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
              certificateText && PEM_write_bio_X509(certificateText.get(), certificate.get()) == 1,
          "its text");

    UnfinishedFile keyFile(files.key, contentsOf(keyText.get()), 0600);
    UnfinishedFile certificateFile(files.chain, contentsOf(certificateText.get()), 0644);
    keyFile.finish();
    try {
        certificateFile.finish();
    } catch (const std::exception&) {
        keyFile.takeBack();
        throw;
    }
}

}  // namespace tarvex::collector
