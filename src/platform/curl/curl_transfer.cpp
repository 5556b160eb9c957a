#include "platform/curl/curl_transfer.h"

#include <fcntl.h>

#include <algorithm>
#include <tuple>

namespace tarvex::platform {
namespace {

constexpr long uploadBufferSize = 512L * 1024;
constexpr std::uint64_t longestAnswer = std::uint64_t{1} << 20U;

// Sets options until one fails, then keeps that failure: a handle that was not set up completely is not used.
class Options {
public:
    explicit Options(CURL* handle) : handle_(handle) {}

    template <typename Value>
    Options& set(CURLoption option, Value value) {
        if (result_ == CURLE_OK) result_ = curl_easy_setopt(handle_, option, value);
        return *this;
    }

    CURLcode result() const { return result_; }

private:
    CURL* handle_;
    CURLcode result_ = CURLE_OK;
};

bool append(Handle<curl_slist, curl_slist_free_all>& list, const std::string& line) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) return false;
    std::ignore = list.release();
    list.reset(longer);
    return true;
}

std::string headerLine(const std::pair<std::string, std::string>& header) {
    return header.second.empty() ? header.first + ";" : header.first + ": " + header.second;
}

}  // namespace

CurlTransfer::CurlTransfer(UrlRequest request, UrlSession::CompletionHandler handler, CurlTransportOptions options)
    : request_(std::move(request)),
      handler_(std::move(handler)),
      options_(std::move(options)),
      patience_(request_.timeout, {}) {}

CurlTransfer::~CurlTransfer() {
    detach();
}

CurlTransfer& CurlTransfer::of(CURL* handle) {
    CurlTransfer* transfer = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
    return *transfer;
}

void CurlTransfer::start(CURLM* multi) {
    patience_ = TransferPatience(request_.timeout, TransferPatience::Clock::now());
    easy_.reset(curl_easy_init());
    startFailure_ = easy_ ? configure() : CURLE_OUT_OF_MEMORY;
    if (startFailure_ != CURLE_OK) return;
    if (curl_multi_add_handle(multi, easy_.get()) == CURLM_OK)
        multi_ = multi;
    else
        startFailure_ = CURLE_FAILED_INIT;
}

CURLcode CurlTransfer::configure() {
    for (const auto& step :
         {&CurlTransfer::configureRequest, &CurlTransfer::configureTrust, &CurlTransfer::configureObservation})
        if (const CURLcode result = (this->*step)(); result != CURLE_OK) return result;
    return CURLE_OK;
}

CURLcode CurlTransfer::configureRequest() {
    // A name without a value takes out the header of that name that curl would add by itself.
    for (const char* unwanted : {"Accept:", "Expect:", "Content-Type:"})
        if (!append(headers_, unwanted)) return CURLE_OUT_OF_MEMORY;
    for (const auto& header : request_.headers)
        if (!append(headers_, headerLine(header))) return CURLE_OUT_OF_MEMORY;

    Options options(easy_.get());
    options.set(CURLOPT_URL, request_.url.string().c_str())
        .set(CURLOPT_HTTPHEADER, headers_.get())
        .set(CURLOPT_FOLLOWLOCATION, 0L)
        .set(CURLOPT_UPLOAD_BUFFERSIZE, uploadBufferSize)
        // An HTTP/2 upload whose server answers early never finishes in libcurl 7.88.
        .set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1))
        // A connection of its own for each request: no request is repeated because an idle connection was dead.
        .set(CURLOPT_FRESH_CONNECT, 1L)
        .set(CURLOPT_FORBID_REUSE, 1L);
    if (request_.body) {
        // Without an address curl would read the body from standard input.
        const char* bytes = bodySize() > 0 ? request_.body->data() : "";
        options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(bodySize())).set(CURLOPT_POSTFIELDS, bytes);
    }
    return options.set(CURLOPT_CUSTOMREQUEST, request_.method.c_str()).result();
}

CURLcode CurlTransfer::configureTrust() {
    Options options(easy_.get());
    options.set(CURLOPT_PROTOCOLS_STR, "https")
        .set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2))
        .set(CURLOPT_SSL_VERIFYPEER, 1L)
        .set(CURLOPT_SSL_VERIFYHOST, 2L)
        // The standard proxy variables are respected; a proxy is reached with the same care.
        .set(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2))
        .set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L)
        .set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L)
        .set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (options_.trustedCertificatesPem) {
        std::string& pem = *options_.trustedCertificatesPem;
        curl_blob blob{.data = pem.data(), .len = pem.size(), .flags = CURL_BLOB_NOCOPY};
        options.set(CURLOPT_CAINFO_BLOB, &blob).set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
        options.set(CURLOPT_PROXY_CAINFO_BLOB, &blob).set(CURLOPT_PROXY_CAPATH, static_cast<const char*>(nullptr));
    }
    if (const auto& to = options_.connectTo) {
        const std::string line =
            to->host + ":" + std::to_string(to->port) + ":" + to->targetHost + ":" + std::to_string(to->targetPort);
        if (!append(connectTo_, line)) return CURLE_OUT_OF_MEMORY;
        options.set(CURLOPT_CONNECT_TO, connectTo_.get()).set(CURLOPT_PROXY, "");
    }
    return options.result();
}

CURLcode CurlTransfer::configureObservation() {
    const auto timeout = std::max<std::int64_t>(request_.timeout.count(), 1);
    return Options(easy_.get())
        .set(CURLOPT_PRIVATE, this)
        .set(CURLOPT_ERRORBUFFER, errorText_.data())
        .set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout))
        .set(CURLOPT_NOSIGNAL, 1L)
        .set(CURLOPT_QUICK_EXIT, 1L)  // a resolver that hangs is left behind, not waited for
        .set(CURLOPT_SOCKOPTFUNCTION, &CurlTransfer::socketOpened)
        .set(CURLOPT_SOCKOPTDATA, this)
        .set(CURLOPT_HEADERFUNCTION, &CurlTransfer::headerArrived)
        .set(CURLOPT_HEADERDATA, this)
        .set(CURLOPT_WRITEFUNCTION, &CurlTransfer::bodyArrived)
        .set(CURLOPT_WRITEDATA, this)
        .result();
}

int CurlTransfer::socketOpened(void* self, curl_socket_t socket, curlsocktype) {
    fcntl(socket, F_SETFD, FD_CLOEXEC);
    static_cast<CurlTransfer*>(self)->sockets_.watch(socket);
    return CURL_SOCKOPT_OK;
}

std::size_t CurlTransfer::headerArrived(char*, std::size_t size, std::size_t count, void* self) {
    return static_cast<CurlTransfer*>(self)->answerTooLong(size * count) ? 0 : size * count;
}

std::size_t CurlTransfer::bodyArrived(char*, std::size_t size, std::size_t count, void* self) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    transfer->statusIsFinal_ = true;
    transfer->answerCutOff_ = transfer->answerTooLong(size * count);
    return transfer->answerCutOff_ ? 0 : size * count;
}

bool CurlTransfer::answerTooLong(std::size_t arrived) {
    answered_ += arrived;
    return answered_ > longestAnswer;
}

std::uint64_t CurlTransfer::sentBytes() const {
    curl_off_t sent = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
    return static_cast<std::uint64_t>(sent);
}

bool CurlTransfer::isConnected() const {
    curl_off_t requestBegan = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_PRETRANSFER_TIME_T, &requestBegan);
    return requestBegan > 0;
}

// An answer that trickles in while the body is still being sent is no progress: it must not keep a stalled upload
// alive.
std::uint64_t CurlTransfer::movedBytes() const {
    const std::uint64_t sent = sentBytes();
    return sent + sockets_.acknowledgedBytes() + (sent >= bodySize() ? answered_ : 0);
}

std::optional<CURLcode> CurlTransfer::overdue(TransferPatience::Clock::time_point now) {
    if (startFailure_ != CURLE_OK) return startFailure_;
    std::optional<TransferPatience::Look> look;
    if (isConnected()) look = {.movedBytes = movedBytes(), .answering = answered_ > 0 && sentBytes() >= bodySize()};
    switch (patience_.judge(look, now)) {
        case TransferPatience::Verdict::goOn:
            return std::nullopt;
        case TransferPatience::Verdict::stalled:
            return CURLE_OPERATION_TIMEDOUT;
        case TransferPatience::Verdict::answerTooLong:
            answerCutOff_ = statusIsFinal_;
            return answerCutOff_ ? CURLE_OK : CURLE_OPERATION_TIMEDOUT;
    }
    std::unreachable();
}

void CurlTransfer::finish(CURLcode code) noexcept {
    end(outcome(code));
}

void CurlTransfer::fail(std::string description) noexcept {
    end({std::nullopt, TransportError{std::move(description)}});
}

void CurlTransfer::deliver() noexcept {
    const UrlSession::CompletionHandler handler = std::exchange(handler_, nullptr);
    if (handler) handler(outcome_.first, std::move(outcome_.second));
}

CurlTransfer::Outcome CurlTransfer::outcome(CURLcode code) const {
    const auto error = [](std::string text) { return Outcome{std::nullopt, TransportError{std::move(text)}}; };
    if (code != CURLE_OK && !answerCutOff_)
        return error(errorText_.front() != '\0' ? errorText_.data() : curl_easy_strerror(code));

    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status == 0) return {UrlResponse{}, std::nullopt};
    if (status < 200) return error(curl_easy_strerror(CURLE_GOT_NOTHING));  // an interim answer, then the end
    if (status == 200 && sentBytes() < bodySize()) return error("The server answered before the whole body was sent");
    return {UrlResponse{.statusCode = static_cast<int>(status)}, std::nullopt};
}

void CurlTransfer::end(Outcome outcome) noexcept {
    outcome_ = std::move(outcome);
    detach();
    request_.body.reset();
}

void CurlTransfer::detach() {
    if (multi_ != nullptr) curl_multi_remove_handle(std::exchange(multi_, nullptr), easy_.get());
    easy_.reset();
    sockets_.end();
}

}  // namespace tarvex::platform
