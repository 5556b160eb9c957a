#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "collector/store/sample.h"
#include "collector/store/sample_queue.h"

namespace tarvex::collector {

using Digest = std::array<std::uint8_t, 32>;  ///< SHA-256

/// A posted document as it came in.
struct Body {
    Digest digest;
    std::uint64_t bytes = 0;
    double received = 0;  ///< by this machine's clock
};

/// Who a document says that it comes from. Nobody has checked it.
struct Sender {
    std::string participant;  ///< its "userId", which may be empty
    std::string application;
    std::string device;
};

/// A record that cannot be read.
struct Unreadable {
    std::string reason;
    std::string excerpt;  ///< valid UTF-8, a few hundred bytes at most
};

/// A posted document, checked. Its samples are in the order of the document.
struct Document {
    /// `spool`: directory of the temporary files that a large document needs.
    explicit Document(const std::filesystem::path& spool) : light(spool), distances(spool), others(spool) {}

    Sender sender;
    SampleQueue<AmbientLight> light;
    SampleQueue<Distance> distances;
    SampleQueue<OtherSample> others;
    std::vector<Unreadable> unreadable;  ///< the first thousand
    std::uint64_t unreadableCount = 0;

    std::uint64_t sampleCount() const { return light.size() + distances.size() + others.size(); }
};

}  // namespace tarvex::collector
