#include "collector/commands/directory.h"

#include <openssl/rand.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <fstream>

#include "collector/whole_file.h"

namespace tarvex::collector {
namespace {

void makePrivate(const std::filesystem::path& directory) {
    if (std::filesystem::is_directory(directory)) return;
    std::filesystem::create_directories(directory);
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all);
}

std::string randomToken() {
    std::array<unsigned char, 20> bytes{};
    if (RAND_bytes(bytes.data(), bytes.size()) != 1) throw std::runtime_error("the system gives no random numbers");
    std::string token;
    for (const unsigned char byte : bytes) {
        constexpr std::string_view digits = "0123456789abcdef";
        token.push_back(digits[byte >> 4U]);
        token.push_back(digits[byte & 0xfU]);
    }
    return token;
}

}  // namespace

std::unique_ptr<Store> openConfiguredStore(const Configuration& configuration) {
    makePrivate(configuration.directory);
    const ::mode_t before = ::umask(0077);  // for the files of the store
    auto store = openStore(configuration.engine);
    ::umask(before);
    return store;
}

std::string pageToken(const Configuration& configuration, bool renews) {
    makePrivate(configuration.directory);
    const auto file = configuration.directory / "token";
    std::string token;
    if (!renews) std::ifstream(file) >> token;
    if (token.empty()) {
        token = randomToken();
        writeWholeFile(file, token + "\n", 0600);
    }
    return token;
}

std::string pageAddress(const Configuration& configuration, std::uint16_t port, const std::string& token) {
    const auto& page = configuration.page;
    const std::string scheme = page.certificate.empty() ? "http://" : "https://";
    const std::string& host = page.names.empty() ? page.address : page.names.front();
    return scheme + hostAndPort(host, port) + "/" + (token.empty() ? "" : "?token=" + token);
}

std::string hostAndPort(std::string host, std::uint16_t port) {
    if (host.contains(':')) host.insert(0, "[").append("]");
    return host + ":" + std::to_string(port);
}

}  // namespace tarvex::collector
