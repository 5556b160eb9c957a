#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarvex::collector {

/// A configuration that cannot be used: one sentence that names the file and the key.
class ConfigurationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the collector is told. The comments are in the file that `defaultConfiguration` returns.
struct Configuration {
    struct Listener {
        std::string address;
        std::uint16_t port = 0;
        std::filesystem::path certificate;
        std::filesystem::path key;
        std::vector<std::string> names;

        bool operator==(const Listener&) const = default;
    };

    std::filesystem::path directory;
    std::string engine;
    Listener ingest;
    bool isPlain = false;  ///< the ingestion is
    Listener page;
    struct Limits {
        std::uint64_t body = 0;
        int connections = 0;
        int connectionsOfAnAddress = 0;
        int idle = 0;  ///< seconds
        int leastSpeed = 0;

        bool operator==(const Limits&) const = default;
    } limits;
    bool needsEnrolment = false;
    std::set<std::string> enrolled;
    int retentionDays = 0;
    double expectedLight = 0;     ///< seconds between two samples; 0 where unknown
    double expectedDistance = 0;  ///< as above
};

/// The whole text of a configuration file that changes nothing.
std::string_view defaultConfiguration();

/// Reads a file; keys that it lacks have their defaults. An empty path for the defaults alone. Directory and engine are
/// never empty afterwards. Throws `ConfigurationError`.
Configuration readConfiguration(const std::filesystem::path& file);

}  // namespace tarvex::collector
