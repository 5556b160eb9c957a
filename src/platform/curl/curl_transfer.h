#pragma once

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/curl/curl_url_session.h"
#include "platform/curl/transfer_progress.h"
#include "platform/shared/handle.h"

namespace tarvex::platform {

/// One request under way: its easy handle, the progress it has made, and the handler that waits for its outcome.
///
/// Reentrant; one thread uses it from `start` to `finish`. The body is sent without a copy. Destroying a transfer drops
/// it: its handler is then not called.
///
/// A transfer is over when the whole answer has arrived. An answer without an end is cut off after a mebibyte or twice
/// the request's time-out, and the status it began with stands; one that stalls or breaks off is an error.
class CurlTransfer {
public:
    CurlTransfer(UrlRequest request, UrlSession::CompletionHandler handler, CurlTransportOptions options);
    ~CurlTransfer();
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    /// The transfer that `handle` was made for.
    static CurlTransfer& of(CURL* handle);

    /// Adds the transfer to `multi`, which must outlive it. Should that fail, the transfer is overdue at once.
    void start(CURLM* multi);

    /// The result with which the transfer has to be ended from this side, if it has to be: nothing has moved for the
    /// request's time-out, or the answer does not end. Looks at the sockets; to be called again by `nextLook`.
    std::optional<CURLcode> overdue(TransferPatience::Clock::time_point now);
    TransferPatience::Clock::time_point nextLook() const { return patience_.nextLook(); }

    /// Ends the transfer with an outcome: curl's code, or an error. Nothing of curl is left afterwards.
    void finish(CURLcode code) noexcept;
    void fail(std::string description) noexcept;

    /// Calls the handler with the outcome, and releases it.
    void deliver() noexcept;

private:
    using Easy = Handle<CURL, curl_easy_cleanup>;
    using List = Handle<curl_slist, curl_slist_free_all>;
    using Outcome = std::pair<std::optional<UrlResponse>, std::optional<TransportError>>;

    CURLcode configure();
    CURLcode configureRequest();
    CURLcode configureTrust();
    CURLcode configureObservation();
    static int socketOpened(void* self, curl_socket_t socket, curlsocktype purpose);
    static std::size_t headerArrived(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t bodyArrived(char* bytes, std::size_t size, std::size_t count, void* self);

    bool answerTooLong(std::size_t arrived);
    std::uint64_t sentBytes() const;
    std::uint64_t bodySize() const { return request_.body ? request_.body->size() : 0; }
    bool isConnected() const;
    std::uint64_t movedBytes() const;
    Outcome outcome(CURLcode code) const;
    void end(Outcome outcome) noexcept;
    void detach();

    UrlRequest request_;
    UrlSession::CompletionHandler handler_;
    CurlTransportOptions options_;

    SocketProgress sockets_;  // outlives the handle: the callbacks use it
    List headers_;
    List connectTo_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    Easy easy_;
    CURLM* multi_ = nullptr;

    CURLcode startFailure_ = CURLE_OK;
    TransferPatience patience_;
    std::uint64_t answered_ = 0;
    bool statusIsFinal_ = false;
    bool answerCutOff_ = false;
    Outcome outcome_;
};

}  // namespace tarvex::platform
