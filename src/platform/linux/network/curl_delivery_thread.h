#pragma once

#include <curl/curl.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/network/curl_transfer.h"

namespace tarvex::platform {

/// The one thread on which transfers run side by side and their handlers are called and released.
///
/// Thread-safe. The thread begins with the first transfer and sleeps without waking up while there is none.
///
/// When the process exits, the thread is parked before OpenSSL's own exit handler runs: it finishes the handler it is
/// in, for which exit waits half a second, and then touches nothing any more. Unfinished transfers stop with the
/// process, and their handlers are not called.
class CurlDeliveryThread : public std::enable_shared_from_this<CurlDeliveryThread> {
public:
    CurlDeliveryThread();
    ~CurlDeliveryThread() = default;
    CurlDeliveryThread(const CurlDeliveryThread&) = delete;
    CurlDeliveryThread& operator=(const CurlDeliveryThread&) = delete;

    /// After `end`, and once the process exits, this does nothing. Should the system refuse a thread, the handler is
    /// called here.
    void start(std::unique_ptr<CurlTransfer> transfer);

    /// Ends the thread, after the handler it is in; unfinished transfers are dropped. Not to be called in a handler.
    void end();

private:
    struct Cleanup {
        void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
    };
    using Multi = std::unique_ptr<CURLM, Cleanup>;
    using Transfers = std::vector<std::unique_ptr<CurlTransfer>>;
    enum class Order : std::uint8_t { run, end, park };

    /// Those that the process's exit has to park.
    struct Live {
        std::mutex mutex;
        std::vector<CurlDeliveryThread*> threads;
        bool exiting = false;
        std::atomic<pid_t> process = 0;  ///< that a thread was last begun in
    };
    struct Ended {
        CurlTransfer& transfer;
        CURLcode code;
    };

    static Live& live();
    static void parkAll();
    void give(Order order);
    void awaitParked(std::chrono::steady_clock::time_point deadline);

    void run() noexcept;
    bool mayContinue(Transfers& transfers);
    [[noreturn]] void park(std::unique_lock<std::mutex> lock);
    std::optional<Ended> nextEnded(const Transfers& transfers);
    void waitForActivity(const Transfers& transfers);

    Multi multi_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Transfers incoming_;
    Order order_ = Order::run;
    bool parked_ = false;
    std::thread thread_;
};

}  // namespace tarvex::platform
