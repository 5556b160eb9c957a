#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace tarvex::collector {

/// The threads that make the bodies which come in pieces: one for each, and not too many. Thread-safe.
class PieceThreads {
public:
    /// One body. Its thread ends after its last piece, or after the piece under way when this goes.
    class Body {
    public:
        virtual ~Body() = default;
        /// Has the next piece made. Not before the last one was delivered.
        virtual void request() = 0;
    };

    explicit PieceThreads(std::size_t most) : most_(most) {}
    /// Waits for the pieces under way; the bodies must have gone.
    ~PieceThreads() = default;
    PieceThreads(const PieceThreads&) = delete;
    PieceThreads& operator=(const PieceThreads&) = delete;

    /// `deliver` gets what `make` returns, absent when it threw; called on the body's thread. Null when there are as
    /// many threads as there may be.
    std::unique_ptr<Body> start(std::function<std::string()> make,
                                std::function<void(std::optional<std::string>)> deliver);

private:
    class Work;
    struct Thread {
        std::shared_ptr<Work> work;
        std::jthread thread;
    };

    std::size_t most_;
    std::mutex mutex_;
    std::list<Thread> threads_;
};

}  // namespace tarvex::collector
