#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "collector/http/server.h"

namespace tarvex::collector {

/// The head of a request, and what it means for the connection.
struct IncomingHead {
    RequestHead head;                     ///< without the peer
    std::optional<std::uint64_t> length;  ///< of the body
    bool hasTransferEncoding = false;     ///< so that its length cannot be told
    bool keepsAlive = false;
    bool isOld = false;  ///< HTTP/1.0
};

/// Parses the head of one request, piece by piece. Reentrant.
class HeadParser {
public:
    /// `limit`: the most bytes of a head.
    explicit HeadParser(std::uint32_t limit);
    ~HeadParser();
    HeadParser(const HeadParser&) = delete;
    HeadParser& operator=(const HeadParser&) = delete;

    /// The number of bytes that it took; the rest is to be given again, with more behind it.
    std::size_t take(std::string_view bytes);
    /// The status that answers a head that cannot be taken.
    std::optional<int> refusal() const { return refusal_; }
    bool isDone() const;
    /// After it is done. Absent when the head makes no sense.
    std::optional<IncomingHead> head() const;

private:
    class Implementation;

    std::unique_ptr<Implementation> implementation_;
    std::uint64_t left_;
    std::optional<int> refusal_;
};

}  // namespace tarvex::collector
