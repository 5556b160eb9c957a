#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace collector {

/// A research backend on this machine: receives documents over HTTPS on a free loopback port and keeps each in a file.
///
/// `certificate.pem` and then `port` appear in the directory once it listens, each complete from the first moment.
class Collector {
public:
    struct Options {
        std::filesystem::path directory;
        std::string host;  ///< which the certificate names
        int status = 200;  ///< what a stored document is answered with
    };

    struct Document {
        std::filesystem::path file;
        std::size_t bytes;
        std::size_t samples;
    };

    /// Starts receiving. `received` is called for each stored document, one at a time, before it is answered.
    /// Throws an exception whose text says what is wrong.
    Collector(Options options, std::function<void(const Document&)> received);

    /// Stops receiving; an answer that is under way is given first.
    ~Collector();
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    std::uint16_t port() const;
    const std::string& certificatePem() const;

private:
    class Server;

    std::unique_ptr<Server> server_;
};

}  // namespace collector
