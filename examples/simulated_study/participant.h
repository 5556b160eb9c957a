#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace simulated_study {

/// What one participant is to do.
struct Assignment {
    int participant = 1;  ///< counted from 1
    std::uint64_t seed = 1;
    double ends = 0;  ///< the last moment of the study, in seconds since 1970
    int days = 21;
    std::filesystem::path collectorDirectory;  ///< with the files `port` and `certificate.pem`
    std::filesystem::path dataDirectory;       ///< of this participant alone
};

/// What a participant did.
struct Outcome {
    std::string identifier;          ///< as the documents have it
    std::int64_t samples = 0;        ///< that were taken, each counted once
    std::int64_t posts = 0;          ///< that were answered with 200
    std::int64_t postedSamples = 0;  ///< over all posts; more than were taken where a post repeats them
};

/// Lives the days of a participant through the client library: gives the consent, takes samples, and posts them.
///
/// Time, light sensor and face tracking are the library's doubles; its facade, store and transport are the real ones.
/// Installs the platform: once in a process. Throws an exception whose text says what failed.
Outcome takePart(const Assignment& assignment);

}  // namespace simulated_study
