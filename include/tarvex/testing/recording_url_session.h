#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/url_session.h"

namespace tarvex::testing {

/// A transport that sends nothing: it records every request that is resumed, and the test completes it. Thread-safe.
class TARVEX_EXPORT RecordingUrlSession final : public platform::UrlSession {
public:
    /// A `platform::UrlRequest` as it was resumed, its body copied.
    struct Request {
        std::string method;
        std::string url;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string body;
        std::chrono::milliseconds timeout;
    };

    RecordingUrlSession();
    ~RecordingUrlSession() override;

    /// The requests so far, in the order in which they were resumed.
    std::vector<Request> requests() const;

    /// Calls the handler of request `index` on the calling thread, then releases it; false when there is no such
    /// request or it is complete already.
    bool respond(std::size_t index, std::optional<platform::UrlResponse> response,
                 std::optional<platform::TransportError> error);

    [[nodiscard]] std::unique_ptr<platform::UrlSessionTask> dataTask(platform::UrlRequest request,
                                                                     CompletionHandler handler) override;

private:
    class Record;
    class Task;

    std::shared_ptr<Record> record_;
};

}  // namespace tarvex::testing
