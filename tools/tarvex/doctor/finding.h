#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarvex::tool {

/// What the doctor has found of one thing that a host needs.
struct Finding {
    enum class State : std::uint8_t {
        good,
        note,  ///< worth knowing; nothing must be done, or it cannot be told from outside
        bad,   ///< something must be done before data comes
    };

    std::string what;         ///< the thing
    State state;              ///< of it
    std::string detail;       ///< what was seen
    std::string remedy = {};  ///< what to do, with the command; empty when there is nothing to do
};

using Findings = std::vector<Finding>;

inline Finding good(std::string what, std::string detail) {
    return {.what = std::move(what), .state = Finding::State::good, .detail = std::move(detail)};
}
inline Finding note(std::string what, std::string detail, std::string remedy = {}) {
    return {.what = std::move(what),
            .state = Finding::State::note,
            .detail = std::move(detail),
            .remedy = std::move(remedy)};
}
inline Finding bad(std::string what, std::string detail, std::string remedy) {
    return {.what = std::move(what),
            .state = Finding::State::bad,
            .detail = std::move(detail),
            .remedy = std::move(remedy)};
}

}  // namespace tarvex::tool
