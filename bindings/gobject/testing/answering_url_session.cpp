#include "answering_url_session.h"

#include <atomic>
#include <thread>
#include <utility>

namespace tarvex::glib {

using namespace platform;

struct AnsweringBackend::State {
    /// Answers what was received and is not answered yet, unless the answers are held.
    static void answerOnThread(const std::shared_ptr<State>& self) {
        std::thread([self] {
            const std::scoped_lock oneAfterTheOther(self->delivery);
            while (const auto index = self->next())
                self->session.respond(*index, UrlResponse{.statusCode = self->statusNow()}, std::nullopt);
        }).detach();
    }

    std::optional<std::size_t> next() {
        const std::scoped_lock lock(mutex);
        if (holding || answered == received) return std::nullopt;
        return answered++;
    }

    int statusNow() {
        const std::scoped_lock lock(mutex);
        return status;
    }

    testing::RecordingUrlSession session;
    std::mutex delivery;
    std::mutex mutex;
    std::size_t received = 0;
    std::size_t answered = 0;
    int status = 200;
    bool holding = false;
};

class AnsweringBackend::Task final : public UrlSessionTask {
public:
    Task(std::unique_ptr<UrlSessionTask> task, std::shared_ptr<State> state)
        : task_(std::move(task)), state_(std::move(state)) {}

    void resume() override {
        if (resumed_.test_and_set()) return;
        task_->resume();
        {
            const std::scoped_lock lock(state_->mutex);
            ++state_->received;
        }
        State::answerOnThread(state_);
    }

private:
    std::unique_ptr<UrlSessionTask> task_;
    std::shared_ptr<State> state_;
    std::atomic_flag resumed_;
};

class AnsweringBackend::Session final : public UrlSession {
public:
    explicit Session(std::shared_ptr<State> state) : state_(std::move(state)) {}

    [[nodiscard]] std::unique_ptr<UrlSessionTask> dataTask(UrlRequest request, CompletionHandler handler) override {
        return std::make_unique<Task>(state_->session.dataTask(std::move(request), std::move(handler)), state_);
    }

private:
    std::shared_ptr<State> state_;
};

AnsweringBackend::AnsweringBackend() : state_(std::make_shared<State>()) {}

std::unique_ptr<UrlSession> AnsweringBackend::makeSession() const {
    return std::make_unique<Session>(state_);
}

int AnsweringBackend::status() const {
    return state_->statusNow();
}

void AnsweringBackend::setStatus(int status) const {
    const std::scoped_lock lock(state_->mutex);
    state_->status = status;
}

bool AnsweringBackend::isHolding() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->holding;
}

void AnsweringBackend::setHolding(bool holding) const {
    {
        const std::scoped_lock lock(state_->mutex);
        state_->holding = holding;
    }
    if (!holding) State::answerOnThread(state_);
}

std::vector<std::string> AnsweringBackend::documents() const {
    std::vector<std::string> bodies;
    for (auto& request : state_->session.requests())
        bodies.push_back(std::move(request.body));
    return bodies;
}

}  // namespace tarvex::glib
