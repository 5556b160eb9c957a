#include "collector/exports/export_stream.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "collector/threads.h"

namespace tarvex::collector {
namespace {

// Pieces that wait for whoever takes them.
constexpr std::size_t mostWaiting = 4;

class Stream {
public:
    explicit Stream(std::function<void(const Sink&)> work)
        : thread_([this, work = std::move(work)] {
              beginThread("export");
              run(work);
          }) {}
    ~Stream() {
        {
            const std::lock_guard lock(mutex_);
            isAbandoned_ = true;
            changed_.notify_all();
        }
        thread_.join();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    std::string next() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !pieces_.empty() || isOver_; });
        if (pieces_.empty() && failure_) std::rethrow_exception(failure_);
        if (pieces_.empty()) return {};
        std::string piece = std::move(pieces_.front());
        pieces_.pop_front();
        changed_.notify_all();
        return piece;
    }

private:
    void run(const std::function<void(const Sink&)>& work) {
        std::exception_ptr failure;
        try {
            work([this](std::string_view piece) { put(piece); });
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        failure_ = failure;
        isOver_ = true;
        changed_.notify_all();
    }

    void put(std::string_view piece) {
        if (piece.empty()) return;
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return pieces_.size() < mostWaiting || isAbandoned_; });
        if (isAbandoned_) throw std::runtime_error("nobody takes the export any more");
        pieces_.emplace_back(piece);
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> pieces_;
    std::exception_ptr failure_;
    bool isOver_ = false;
    bool isAbandoned_ = false;
    std::thread thread_;
};

}  // namespace

std::function<std::string()> streamExport(std::function<std::unique_ptr<Store>()> open,
                                          std::function<void(Store&, const Sink&)> write) {
    auto stream = std::make_shared<Stream>(
        [open = std::move(open), write = std::move(write)](const Sink& sink) { write(*open(), sink); });
    return [stream] { return stream->next(); };
}

}  // namespace tarvex::collector
