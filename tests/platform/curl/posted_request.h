#pragma once

#include <cstdlib>
#include <future>
#include <thread>

#include "tarvex/platform/url_session.h"

namespace tarvex::test {

// A developer's own proxies must not reach the tests.
inline const bool proxiesForgotten = [] {
    for (const char* variable : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
        unsetenv(variable);
    return true;
}();

inline std::shared_ptr<const platform::ByteBuffer> bodyOf(std::string_view text) {
    auto body = std::make_shared<platform::ByteBuffer>();
    body->append(text);
    return body;
}

/// A request as a document's, to the host that the tests' certificates name.
inline platform::UrlRequest request(std::shared_ptr<const platform::ByteBuffer> body,
                                    std::chrono::milliseconds timeout = std::chrono::seconds(60),
                                    std::string_view url = "https://backend.example/tracking") {
    return {.url = Url::parse(url).value(),
            .method = "POST",
            .headers = {{"Content-Type", "application/json"}},
            .body = std::move(body),
            .timeout = timeout};
}

/// A request that has been sent, and its outcome.
class PostedRequest {
public:
    struct Outcome {
        bool hasResponse;
        std::optional<int> status;
        std::string error;
        std::thread::id thread;
    };

    PostedRequest(platform::UrlSession& session, platform::UrlRequest request) {
        auto promise = std::make_shared<std::promise<Outcome>>();
        outcome_ = promise->get_future();
        const auto keep = [promise](const auto& response, const auto& error) {
            promise->set_value({.hasResponse = response.has_value(),
                                .status = response ? response->statusCode : std::nullopt,
                                .error = error ? error->localizedDescription : std::string(),
                                .thread = std::this_thread::get_id()});
        };
        session.dataTask(std::move(request), keep)->resume();
    }

    bool isOver() const { return outcome_.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }

    /// Throws when the handler was released without a call.
    Outcome outcome() { return outcome_.get(); }

private:
    std::future<Outcome> outcome_;
};

}  // namespace tarvex::test
