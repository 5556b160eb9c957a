#include "platform/linux/network/curl_delivery_thread.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>

#include "platform/posix/library_thread.h"

namespace tarvex::platform {
namespace {

constexpr std::chrono::milliseconds exitGrace{500};

}  // namespace

CurlDeliveryThread::CurlDeliveryThread() {
    // In this order: exit handlers run backwards, and OpenSSL's is registered in the first call.
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    static const int registered = std::atexit(&parkAll);
    static_cast<void>(initialised);
    static_cast<void>(registered);

    const std::scoped_lock lock(live().mutex);
    if (live().exiting) order_ = Order::park;
    live().threads.push_back(this);
}

void CurlDeliveryThread::start(std::unique_ptr<CurlTransfer> transfer) {
    std::unique_lock lock(mutex_);
    if (order_ != Order::run) return;
    try {
        if (!multi_) multi_.reset(curl_multi_init());
        if (!multi_) throw std::system_error(std::make_error_code(std::errc::not_enough_memory));
        // A parked thread is never joined: it keeps what it stands on.
        if (!thread_.joinable()) {
            thread_ = std::thread([self = shared_from_this()] { self->run(); });
            live().process = getpid();
        }
    } catch (const std::system_error& refusal) {
        lock.unlock();
        transfer->fail(refusal.what());
        return;
    }
    incoming_.push_back(std::move(transfer));
    changed_.notify_all();
    curl_multi_wakeup(multi_.get());
}

void CurlDeliveryThread::end() {
    {
        const std::scoped_lock lock(live().mutex);
        std::erase(live().threads, this);
    }
    give(Order::end);
    if (!thread_.joinable()) return;
    if (order_ == Order::park)
        thread_.detach();
    else
        thread_.join();
}

void CurlDeliveryThread::give(Order order) {
    const std::scoped_lock lock(mutex_);
    if (order_ == Order::run) order_ = order;
    changed_.notify_all();
    if (multi_) curl_multi_wakeup(multi_.get());
}

// Never destroyed: the process's exit handler uses it.
CurlDeliveryThread::Live& CurlDeliveryThread::live() {
    static auto* const live = new Live;
    return *live;
}

void CurlDeliveryThread::parkAll() {
    if (getpid() != live().process) return;  // a fork without the threads
    const auto deadline = std::chrono::steady_clock::now() + exitGrace;
    const std::scoped_lock lock(live().mutex);
    live().exiting = true;
    for (CurlDeliveryThread* thread : live().threads)
        thread->give(Order::park);
    for (CurlDeliveryThread* thread : live().threads)
        thread->awaitParked(deadline);
}

void CurlDeliveryThread::awaitParked(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    const bool exitsInHandler = thread_.get_id() == std::this_thread::get_id();
    if (!thread_.joinable() || exitsInHandler) return;
    changed_.wait_until(lock, deadline, [this] { return parked_; });
}

void CurlDeliveryThread::run() noexcept {
    beginLibraryThread("tarvex-upload");
    Transfers transfers;
    while (mayContinue(transfers)) {
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        if (const auto ended = nextEnded(transfers)) {
            // One at a time: before the next handler is called, an order to end may have come.
            const auto place = std::ranges::find(transfers, &ended->transfer, &std::unique_ptr<CurlTransfer>::get);
            const std::unique_ptr<CurlTransfer> transfer = std::move(*place);
            transfers.erase(place);
            transfer->finish(ended->code);
        } else {
            waitForActivity(transfers);
        }
    }
}

// Takes in what was started meanwhile, asleep as long as there is nothing to do; false when the thread has to end.
bool CurlDeliveryThread::mayContinue(Transfers& transfers) {
    Transfers arrived;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return order_ != Order::run || !incoming_.empty() || !transfers.empty(); });
        if (order_ == Order::park) park(std::move(lock));
        arrived.swap(incoming_);
        if (order_ == Order::end) return false;
    }
    for (std::unique_ptr<CurlTransfer>& transfer : arrived) {
        transfer->start(multi_.get());
        transfers.push_back(std::move(transfer));
    }
    return true;
}

void CurlDeliveryThread::park(std::unique_lock<std::mutex> lock) {
    parked_ = true;
    changed_.notify_all();
    lock.unlock();
    while (true)
        pause();
}

std::optional<CurlDeliveryThread::Ended> CurlDeliveryThread::nextEnded(const Transfers& transfers) {
    int remaining = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &remaining))
        if (message->msg == CURLMSG_DONE) return Ended{CurlTransfer::of(message->easy_handle), message->data.result};
    const auto now = CurlTransfer::Clock::now();
    for (const std::unique_ptr<CurlTransfer>& transfer : transfers)
        if (const auto code = transfer->overdue(now)) return Ended{*transfer, *code};
    return std::nullopt;
}

void CurlDeliveryThread::waitForActivity(const Transfers& transfers) {
    if (transfers.empty()) return;
    CurlTransfer::Clock::duration wait = std::chrono::minutes(1);
    for (const std::unique_ptr<CurlTransfer>& transfer : transfers)
        wait = std::min(wait, transfer->checkInterval());
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait);
    curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(milliseconds.count()), nullptr);
}

}  // namespace tarvex::platform
