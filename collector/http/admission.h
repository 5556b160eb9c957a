#pragma once

#include <map>
#include <string>

#include "collector/http/server.h"

namespace tarvex::collector {

/// The other end of a connection.
struct Peer {
    std::string address;  ///< of IPv4 where it came over IPv6
    std::string network;  ///< what counts as one address: of IPv6, everybody has those of a whole /64 network
    bool isLoopback = false;
};

Peer peerOf(const std::string& address);

/// How many connections there may be. Reentrant.
class Admission {
public:
    explicit Admission(const HttpServer::Limits& limits)
        : most_(limits.connections), mostOfANetwork_(limits.connectionsOfAnAddress) {}

    /// Counts one more connection, or does not admit it.
    bool enter(const Peer& peer);
    void leave(const Peer& peer);

private:
    int most_;
    int mostOfANetwork_;
    int count_ = 0;
    std::map<std::string, int> networks_;
};

}  // namespace tarvex::collector
