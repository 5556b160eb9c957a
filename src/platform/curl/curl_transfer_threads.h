#pragma once

#include <curl/curl.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/curl/curl_transfer.h"
#include "platform/shared/exit_parking.h"
#include "platform/shared/handle.h"

namespace tarvex::platform {

/// Two threads: one on which transfers run side by side, and one that calls their handlers and releases them, one after
/// the other in the order in which the transfers ended. A handler that takes its time holds up no transfer.
///
/// Thread-safe. The threads begin with the first transfer and sleep without waking up while there is none.
///
/// When the process exits, the threads are parked before OpenSSL's own exit handler runs: a running handler ends, for
/// which the exit waits half a second, and then both threads sleep for good. Unfinished transfers stop with the
/// process, and handlers that have not begun are not called.
class CurlTransferThreads : public std::enable_shared_from_this<CurlTransferThreads> {
public:
    CurlTransferThreads();
    ~CurlTransferThreads() = default;
    CurlTransferThreads(const CurlTransferThreads&) = delete;
    CurlTransferThreads& operator=(const CurlTransferThreads&) = delete;

    /// After `end`, and once the process exits, this does nothing. Should the system refuse a thread, the handler is
    /// called here.
    void start(std::unique_ptr<CurlTransfer> transfer);

    /// Ends the threads, after the handler that runs; unfinished transfers are dropped, and so are those whose handler
    /// has not begun. Not to be called in a handler.
    void end();

private:
    friend class ExitParking<CurlTransferThreads>;
    using Multi = Handle<CURLM, curl_multi_cleanup>;
    using Transfers = std::vector<std::unique_ptr<CurlTransfer>>;
    enum class Order : std::uint8_t { run, end, park };

    struct Ended {
        CurlTransfer& transfer;
        CURLcode code;
    };

    static constexpr std::chrono::milliseconds exitGrace{500};
    void begin(std::thread& thread, void (CurlTransferThreads::*work)() noexcept);
    void give(Order order);
    void stopForExit() { give(Order::park); }
    void awaitStop(std::chrono::steady_clock::time_point deadline);
    [[noreturn]] void park(std::unique_lock<std::mutex> lock);

    void runTransfers() noexcept;
    bool mayContinue(Transfers& transfers);
    std::optional<Ended> nextEnded(const Transfers& transfers);
    void waitForActivity(const Transfers& transfers);

    void callHandlers() noexcept;
    std::unique_ptr<CurlTransfer> nextFinished();

    Multi multi_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Transfers incoming_;
    std::deque<std::unique_ptr<CurlTransfer>> finished_;
    Order order_ = Order::run;
    int parked_ = 0;
    std::thread transferring_;
    std::thread delivering_;
};

}  // namespace tarvex::platform
