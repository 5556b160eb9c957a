#include "collector/http/admission.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace tarvex::collector {
namespace {

template <typename Address>
std::string textOf(int family, const Address& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    return ::inet_ntop(family, &address, text.data(), text.size()) == nullptr ? std::string() : text.data();
}

}  // namespace

Peer peerOf(const std::string& address) {
    in6_addr parsed{};
    const std::string withoutScope = address.substr(0, address.find('%'));
    if (::inet_pton(AF_INET6, withoutScope.c_str(), &parsed) != 1)
        return {.address = address, .network = address, .isLoopback = address.starts_with("127.")};
    if (IN6_IS_ADDR_V4MAPPED(&parsed)) {
        std::array<unsigned char, sizeof(in_addr)> last{};
        std::copy_n(&parsed.s6_addr[12], last.size(), last.begin());
        return peerOf(textOf(AF_INET, last));
    }
    const bool isLoopback = IN6_IS_ADDR_LOOPBACK(&parsed);
    std::fill(&parsed.s6_addr[8], &parsed.s6_addr[0] + sizeof(parsed), static_cast<unsigned char>(0));
    return {.address = address, .network = textOf(AF_INET6, parsed), .isLoopback = isLoopback};
}

bool Admission::enter(const Peer& peer) {
    if (count_ >= most_) return false;
    int& ofNetwork = networks_[peer.network];
    if (!peer.isLoopback && ofNetwork >= mostOfANetwork_) return false;
    ++ofNetwork;
    ++count_;
    return true;
}

void Admission::leave(const Peer& peer) {
    const auto network = networks_.find(peer.network);
    if (--network->second == 0) networks_.erase(network);
    --count_;
}

}  // namespace tarvex::collector
