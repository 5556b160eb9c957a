#pragma once

#include <memory>

#include "platform/curl/curl_transport_options.h"
#include "tarvex/platform/url_session.h"

namespace tarvex::platform {

class CurlTransferThreads;

/// URL loading on libcurl: HTTPS only, over HTTP/1.1, with certificate and host name always verified against the
/// system's certificates, redirects not followed, and nothing sent but the request's own headers and the two that HTTP
/// demands (Host, Content-Length).
///
/// The variables `https_proxy`, `all_proxy` and `no_proxy` are respected; no variable weakens the verification.
///
/// A transfer ends with an error when nothing has moved for the request's time-out (noticed up to a sixtieth of it
/// late), connecting included, with the text that curl has for it. So does one that was answered with success before
/// the server had taken the whole body. Any other answer comes through with its status.
///
/// May be destroyed on any thread but the delivery thread, and any time: unfinished transfers are then dropped, and
/// tasks that are left do nothing.
class CurlUrlSession final : public UrlSession {
public:
    CurlUrlSession();
    explicit CurlUrlSession(CurlTransportOptions options);
    ~CurlUrlSession() override;

    [[nodiscard]] std::unique_ptr<UrlSessionTask> dataTask(UrlRequest request, CompletionHandler handler) override;

private:
    CurlTransportOptions options_;
    std::shared_ptr<CurlTransferThreads> threads_;
};

}  // namespace tarvex::platform
