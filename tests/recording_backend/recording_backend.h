#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace tarvex::test {

/// Takes the research backend's place in tests of the library: receives documents over HTTPS on a free loopback port
/// and keeps each in a file.
///
/// `certificate.pem` and then `port` appear in the directory once it listens, each complete from the first moment.
class RecordingBackend {
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
    RecordingBackend(Options options, std::function<void(const Document&)> received);

    /// Stops receiving; an answer that is under way is given first.
    ~RecordingBackend();
    RecordingBackend(const RecordingBackend&) = delete;
    RecordingBackend& operator=(const RecordingBackend&) = delete;

    std::uint16_t port() const;
    const std::string& certificatePem() const;

private:
    class Server;

    std::unique_ptr<Server> server_;
};

}  // namespace tarvex::test
