#include "collector/http/self_signed_certificate.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include "prelude.h"

namespace tarvex::collector {
namespace {

std::shared_ptr<X509> readCertificate(const std::filesystem::path& path) {
    FILE* file = std::fopen(path.c_str(), "r");
    std::shared_ptr<X509> certificate(PEM_read_X509(file, nullptr, nullptr, nullptr), &X509_free);
    std::fclose(file);
    return certificate;
}

}  // namespace

TEST(SelfSignedCertificate, ServesItsHostsForTenYears) {
    const TemporaryDirectory directory;
    const HttpServer::Certificate files{.chain = directory.path() / "chain.pem", .key = directory.path() / "key.pem"};
    makeSelfSignedCertificate(files, {"collector.example", "192.0.2.1", "::1"});
    const auto certificate = readCertificate(files.chain);
    ASSERT_TRUE(certificate);
    EXPECT_EQ(X509_check_host(certificate.get(), "collector.example", 0, 0, nullptr), 1);
    EXPECT_NE(X509_check_host(certificate.get(), "other.example", 0, 0, nullptr), 1);
    for (const auto* address : {"192.0.2.1", "::1"})
        EXPECT_EQ(X509_check_ip_asc(certificate.get(), address, 0), 1) << address;
    int days = 0;
    int seconds = 0;
    ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate.get()));
    EXPECT_NEAR(days, 3652, 1);
    EXPECT_EQ(X509_verify(certificate.get(), X509_get0_pubkey(certificate.get())), 1);
    struct stat status{};
    ::stat(files.key.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(SelfSignedCertificate, WritesBothFilesOrNone) {
    const TemporaryDirectory directory;
    const auto key = directory.path() / "key.pem";
    const auto blocked = directory.path() / "blocked";
    std::filesystem::create_directory(blocked);
    EXPECT_ANY_THROW(makeSelfSignedCertificate({.chain = blocked, .key = key}, {"localhost"}));
    EXPECT_FALSE(std::filesystem::exists(key));
    writeFile(key, "the old one");
    EXPECT_ANY_THROW(makeSelfSignedCertificate({.chain = blocked, .key = key}, {"localhost"}));
    EXPECT_EQ(contentsOf(key), "the old one");
    for (const std::vector<std::string>& hosts : {std::vector<std::string>{}, {"a,email:b"}, {""}})
        EXPECT_ANY_THROW(makeSelfSignedCertificate({.chain = directory.path() / "chain.pem", .key = key}, hosts));
    EXPECT_THAT(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2) << "nothing is left over";
}

}  // namespace tarvex::collector
