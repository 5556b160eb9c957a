#include "collector/http/piece_threads.h"

#include <condition_variable>
#include <utility>

#include "collector/http/server_thread.h"

namespace tarvex::collector {

class PieceThreads::Work {
public:
    void request() {
        const std::lock_guard lock(mutex_);
        isRequested_ = true;
        changed_.notify_one();
    }

    void end() {
        const std::lock_guard lock(mutex_);
        hasEnded_ = true;
        changed_.notify_one();
    }

    bool isDone() {
        const std::lock_guard lock(mutex_);
        return isDone_;
    }

    void run(std::function<std::string()> make, const std::function<void(std::optional<std::string>)>& deliver) {
        beginServerThread("collector-piece");
        while (awaitRequest()) {
            auto piece = makePiece(make);
            const bool isLast = !piece || piece->empty();
            deliver(std::move(piece));
            if (isLast) break;
        }
        make = nullptr;  // what it holds goes on the thread that used it
        const std::lock_guard lock(mutex_);
        isDone_ = true;
    }

private:
    bool awaitRequest() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isRequested_ || hasEnded_; });
        isRequested_ = false;
        return !hasEnded_;
    }

    static std::optional<std::string> makePiece(const std::function<std::string()>& make) {
        try {
            return make();
        } catch (...) {
            return std::nullopt;
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isRequested_ = false;
    bool hasEnded_ = false;
    bool isDone_ = false;
};

std::unique_ptr<PieceThreads::Body> PieceThreads::start(std::function<std::string()> make,
                                                        std::function<void(std::optional<std::string>)> deliver) {
    class Handle final : public Body {
    public:
        explicit Handle(std::shared_ptr<Work> work) : work_(std::move(work)) {}
        ~Handle() override { work_->end(); }
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;
        void request() override { work_->request(); }

    private:
        std::shared_ptr<Work> work_;
    };

    const std::lock_guard lock(mutex_);
    threads_.remove_if([](const Thread& thread) { return thread.work->isDone(); });
    if (threads_.size() >= most_) return nullptr;
    auto work = std::make_shared<Work>();
    auto handle = std::make_unique<Handle>(work);
    threads_.push_back({.work = work, .thread = {}});
    try {
        threads_.back().thread = std::jthread([work, make = std::move(make), deliver = std::move(deliver)]() mutable {
            work->run(std::move(make), deliver);
        });
    } catch (const std::system_error&) {
        threads_.pop_back();
        return nullptr;
    }
    return handle;
}

}  // namespace tarvex::collector
