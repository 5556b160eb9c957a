#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/byte_buffer.h"
#include "tarvex/url.h"

namespace tarvex::platform {

/// One request over HTTPS, complete.
struct UrlRequest {
    Url url;
    std::string method;                                        ///< "POST"
    std::vector<std::pair<std::string, std::string>> headers;  ///< names and values, beside the transport's own
    /// Sent without a copy; shared with the transfer until that ends.
    std::shared_ptr<const ByteBuffer> body = nullptr;
    /// The longest time without progress, connecting included.
    std::chrono::milliseconds timeout{60'000};
};

/// The answer of the server to a request that was sent as a whole.
struct UrlResponse {
    std::optional<int> statusCode = std::nullopt;  ///< absent when the answer was no HTTP response
};

/// The reason why a request has no answer that counts.
struct TransportError {
    std::string localizedDescription;  ///< the transport's own text, readable
};

/// A request that has been built and waits for `resume`. Thread-safe.
class TARVEX_EXPORT UrlSessionTask {
public:
    virtual ~UrlSessionTask() = default;

    /// Starts the transfer; later calls do nothing. The transfer does not need the task to stay alive.
    virtual void resume() = 0;
};

/// The process's URL loading system. Thread-safe.
class TARVEX_EXPORT UrlSession {
public:
    /// Called at most once for each resumed task, on the session's delivery thread, one after the other in the order in
    /// which the transfers ended, or by `resume` when the system refuses a thread. Not called when the session or the
    /// process ends first. Transfers and their time-outs go on while a handler runs. An error means that the outcome of
    /// the request is not known. The response's body is not kept.
    using CompletionHandler = std::function<void(std::optional<UrlResponse>, std::optional<TransportError>)>;

    virtual ~UrlSession() = default;

    /// A task for `request`; nothing is sent before its `resume`.
    [[nodiscard]] virtual std::unique_ptr<UrlSessionTask> dataTask(UrlRequest request, CompletionHandler handler) = 0;
};

}  // namespace tarvex::platform
