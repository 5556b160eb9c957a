#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collector/http/server.h"

namespace tarvex::collector {

/// Decides whose requests the research page answers: those that carry the token, and come from the page itself or from
/// no page. Thread-safe.
class Access {
public:
    struct Options {
        std::string token;                    ///< not empty
        std::function<std::uint16_t()> port;  ///< of the listener
        std::vector<std::string> hosts = {};  ///< names besides those of loopback, with a port or for all ports
        bool isEncrypted = false;             ///< browsers reach the page by HTTPS only
    };

    /// Throws `std::invalid_argument` without a token.
    explicit Access(Options options);

    /// The answer to a request that goes no further: a refusal, or the redirection that follows a right token.
    std::optional<Response> screen(const RequestHead& head) const;

private:
    bool isOwnHost(const RequestHead& head) const;
    bool isOwnOrigin(const RequestHead& head) const;
    bool isLoopback(std::string_view host) const;
    bool isToken(std::string_view candidate) const;
    bool hasBearer(const RequestHead& head) const;
    bool hasCookie(const RequestHead& head) const;
    std::string cookieName() const;
    Response welcome() const;

    Options options_;
};

}  // namespace tarvex::collector
