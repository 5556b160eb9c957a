#pragma once

#include <openssl/evp.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <span>
#include <utility>

#include "collector/store/document.h"
#include "collector/store/temporary_file.h"

namespace tarvex::collector {

/// A body on its way into a temporary file, and its digest. Reentrant.
class BodyReception {
public:
    /// `spool`: directory of the file. Nothing is made there before the first byte.
    explicit BodyReception(std::filesystem::path spool);

    /// Throws `std::system_error`, the disk being full for one reason.
    void append(std::span<const std::byte> bytes);
    /// What has come, received now. Once.
    std::pair<TemporaryFile, Body> finish();

private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };

    std::filesystem::path spool_;
    TemporaryFile file_;
    std::unique_ptr<EVP_MD_CTX, Free> digest_;
};

/// Tells until when more must have come, so that enough comes in every span of `window`.
class LeastRate {
public:
    using Clock = std::chrono::steady_clock;

    LeastRate(std::uint64_t bytesPerSecond, std::chrono::milliseconds window, Clock::time_point now);

    void add(std::uint64_t bytes, Clock::time_point now);
    Clock::time_point deadline() const { return marks_.front().time + window_; }

private:
    struct Mark {
        Clock::time_point time;
        std::uint64_t before;  ///< bytes that had come until then
    };

    std::chrono::milliseconds window_;
    std::uint64_t need_;  ///< bytes in a window
    std::uint64_t total_ = 0;
    std::deque<Mark> marks_;  ///< the first is the latest since which enough has come
};

}  // namespace tarvex::collector
