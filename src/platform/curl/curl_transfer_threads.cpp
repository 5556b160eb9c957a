#include "platform/curl/curl_transfer_threads.h"

#include <unistd.h>

#include <algorithm>
#include <system_error>

#include "platform/shared/library_thread.h"

namespace tarvex::platform {

CurlTransferThreads::CurlTransferThreads() {
    // First, because it registers OpenSSL's exit handler.
    [[maybe_unused]] static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (!ExitParking<CurlTransferThreads>::add(*this)) order_ = Order::park;
}

void CurlTransferThreads::start(std::unique_ptr<CurlTransfer> transfer) {
    std::unique_lock lock(mutex_);
    if (order_ != Order::run) return;
    try {
        if (!multi_) multi_.reset(curl_multi_init());
        if (!multi_) throw std::system_error(std::make_error_code(std::errc::not_enough_memory));
        begin(delivering_, &CurlTransferThreads::callHandlers);
        begin(transferring_, &CurlTransferThreads::runTransfers);
    } catch (const std::system_error& refusal) {
        lock.unlock();
        transfer->fail(refusal.what());
        transfer->deliver();
        return;
    }
    incoming_.push_back(std::move(transfer));
    changed_.notify_all();
    curl_multi_wakeup(multi_.get());
}

void CurlTransferThreads::begin(std::thread& thread, void (CurlTransferThreads::*work)() noexcept) {
    if (thread.joinable()) return;
    // A parked thread is never joined: it owns the object that it uses.
    thread = std::thread([self = shared_from_this(), work] { (*self.*work)(); });
    ExitParking<CurlTransferThreads>::threadBegins();
}

void CurlTransferThreads::end() {
    ExitParking<CurlTransferThreads>::remove(*this);
    give(Order::end);
    for (std::thread* thread : {&transferring_, &delivering_}) {
        if (!thread->joinable()) continue;
        if (order_ == Order::park)
            thread->detach();
        else
            thread->join();
    }
}

void CurlTransferThreads::give(Order order) {
    const std::scoped_lock lock(mutex_);
    if (order_ == Order::run) order_ = order;
    changed_.notify_all();
    if (multi_) curl_multi_wakeup(multi_.get());
}

void CurlTransferThreads::awaitStop(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    // A handler that exits does not wait for itself.
    const auto awaited = [](const std::thread& thread) {
        return thread.joinable() && thread.get_id() != std::this_thread::get_id() ? 1 : 0;
    };
    const int all = awaited(transferring_) + awaited(delivering_);
    changed_.wait_until(lock, deadline, [&] { return parked_ == all; });
}

void CurlTransferThreads::park(std::unique_lock<std::mutex> lock) {
    ++parked_;
    changed_.notify_all();
    lock.unlock();
    while (true)
        pause();
}

void CurlTransferThreads::runTransfers() noexcept {
    beginLibraryThread("tarvex-transfer");
    Transfers transfers;
    while (mayContinue(transfers)) {
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        if (const auto ended = nextEnded(transfers)) {
            const auto place = std::ranges::find(transfers, &ended->transfer, &std::unique_ptr<CurlTransfer>::get);
            ended->transfer.finish(ended->code);
            const std::lock_guard lock(mutex_);
            finished_.push_back(std::move(*place));
            transfers.erase(place);
            changed_.notify_all();
        } else {
            waitForActivity(transfers);
        }
    }
}

// Takes in what was started meanwhile, asleep as long as there is nothing to do; false when the thread has to end.
bool CurlTransferThreads::mayContinue(Transfers& transfers) {
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

std::optional<CurlTransferThreads::Ended> CurlTransferThreads::nextEnded(const Transfers& transfers) {
    int remaining = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &remaining))
        if (message->msg == CURLMSG_DONE) return Ended{CurlTransfer::of(message->easy_handle), message->data.result};
    const auto now = TransferPatience::Clock::now();
    for (const std::unique_ptr<CurlTransfer>& transfer : transfers)
        if (const auto code = transfer->overdue(now)) return Ended{*transfer, *code};
    return std::nullopt;
}

void CurlTransferThreads::waitForActivity(const Transfers& transfers) {
    if (transfers.empty()) return;
    const auto now = TransferPatience::Clock::now();
    auto until = now + std::chrono::minutes(1);
    for (const std::unique_ptr<CurlTransfer>& transfer : transfers)
        until = std::min(until, transfer->nextLook());
    const auto wait = std::max(std::chrono::ceil<std::chrono::milliseconds>(until - now), {});
    curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(wait.count()), nullptr);
}

void CurlTransferThreads::callHandlers() noexcept {
    beginLibraryThread("tarvex-upload");
    while (const std::unique_ptr<CurlTransfer> transfer = nextFinished())
        transfer->deliver();
}

// Sleeps until a transfer has ended; null when the thread has to end, whatever is left then.
std::unique_ptr<CurlTransfer> CurlTransferThreads::nextFinished() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return order_ != Order::run || !finished_.empty(); });
    if (order_ == Order::park) park(std::move(lock));
    if (order_ == Order::end) return nullptr;
    std::unique_ptr<CurlTransfer> transfer = std::move(finished_.front());
    finished_.pop_front();
    return transfer;
}

}  // namespace tarvex::platform
