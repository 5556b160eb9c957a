#include "tarvex/testing/scripted_capture_device.h"

#include <utility>

namespace tarvex::testing {

ScriptedCaptureDevice::ScriptedCaptureDevice(std::deque<bool> answers) : answers_(std::move(answers)) {}

void ScriptedCaptureDevice::requestAccessForVideo(std::function<void(bool)> handler) {
    const std::scoped_lock lock(mutex_);
    ++requestCount_;
    waiting_.push_back(std::move(handler));
}

bool ScriptedCaptureDevice::isRequestInProgress() const {
    const std::scoped_lock lock(mutex_);
    return !waiting_.empty();
}

std::size_t ScriptedCaptureDevice::requestCount() const {
    const std::scoped_lock lock(mutex_);
    return requestCount_;
}

bool ScriptedCaptureDevice::answerNext() {
    std::unique_lock lock(mutex_);
    if (waiting_.empty()) return false;
    const auto handler = std::move(waiting_.front());
    waiting_.pop_front();
    const bool granted = !answers_.empty() && answers_.front();
    if (!answers_.empty()) answers_.pop_front();
    lock.unlock();
    handler(granted);
    return true;
}

}  // namespace tarvex::testing
