#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tarvex/testing/recording_url_session.h"

namespace tarvex::glib {

/// A backend in the process: a session that records its requests and answers them on a thread of their own, one after
/// the other. Thread-safe; copies are the same backend.
class AnsweringBackend {
public:
    AnsweringBackend();

    /// A session for a platform; the backend's end does not end it.
    std::unique_ptr<platform::UrlSession> makeSession() const;

    int status() const;
    void setStatus(int status) const;
    bool isHolding() const;
    /// Requests that wait when this ends are answered.
    void setHolding(bool holding) const;

    /// The bodies of the requests so far.
    std::vector<std::string> documents() const;

private:
    struct State;
    class Session;
    class Task;

    std::shared_ptr<State> state_;
};

}  // namespace tarvex::glib
