#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace tarvex::collector {

/// Tells scripts and hosts on this machine, by files in a directory, where a collector serves: `certificate.pem`, what
/// clients have to trust (not where the ingestion is plain), `page`, the page's address with its token, which the user
/// alone may read, and at last `port`, the ingestion's. Each appears whole. Thread-bound.
class Announcement {
public:
    struct Contents {
        std::uint16_t port;                 ///< of the ingestion
        std::filesystem::path certificate;  ///< its chain; empty where it is plain
        std::string pageAddress;
    };

    /// Makes the directory where it is missing. Throws `std::system_error`.
    Announcement(std::filesystem::path directory, const Contents& contents);

    /// Says something else from now on; without a certificate, the one that is there stays. Throws `std::system_error`.
    void update(const Contents& contents);

    /// Removes `port` and `page`.
    ~Announcement();
    Announcement(const Announcement&) = delete;
    Announcement& operator=(const Announcement&) = delete;

private:
    std::filesystem::path directory_;
};

}  // namespace tarvex::collector
