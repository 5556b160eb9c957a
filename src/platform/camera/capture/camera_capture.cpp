#include "platform/camera/capture/camera_capture.h"

#include <system_error>
#include <utility>

#include "platform/shared/library_thread.h"
#include "tarvex/platform/diagnostics.h"

namespace tarvex::camera {
namespace {

using namespace std::chrono_literals;
// The delay until a pause is noticed, and the interval between looks while no face is seen.
constexpr auto framePatience = 50ms;
constexpr auto lookInterval = 100ms;
// Without a frame: a camera that has just been opened takes longer.
constexpr auto openingStall = 2s;
constexpr auto runningStall = 800ms;

void sayThatNothingIsMeasured(const std::string& why) {
    platform::logWarning("no distance is measured: " + why);
}

}  // namespace

CameraCapture::CameraCapture(CaptureOpener open) : open_(std::move(open)) {
    // A source that loads its plugins while the process's libraries are being taken down would bring it down.
    ending_ = !platform::ExitParking<CameraCapture>::add(*this);
}

CameraCapture::~CameraCapture() {
    finish();
}

void CameraCapture::finish() {
    platform::ExitParking<CameraCapture>::remove(*this);
    stopForExit();
    if (thread_.joinable()) thread_.join();
}

void CameraCapture::stopForExit() {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    ++changes_;
    changed_.notify_all();
}

void CameraCapture::awaitStop(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    const bool exitsOnItsThread = thread_.get_id() == std::this_thread::get_id();
    if (!thread_.joinable() || exitsOnItsThread) return;
    if (changed_.wait_until(lock, deadline, [this] { return ended_; })) thread_.join();
}

void CameraCapture::run(const std::shared_ptr<FaceObserver>& observer) {
    const std::lock_guard lock(mutex_);
    forget(observer.get());
    runs_.push_back({.identity = observer.get(), .observer = observer});
    ++runCount_;
    ++changes_;
    changed_.notify_all();
    if (thread_.joinable() || ending_) return;
    try {
        thread_ = std::thread([this] { work(); });
        platform::ExitParking<CameraCapture>::threadBegins();
    } catch (const std::system_error& refusal) {
        sayThatNothingIsMeasured(refusal.what());
    }
}

void CameraCapture::pause(const FaceObserver& observer) {
    const std::lock_guard lock(mutex_);
    forget(&observer);
    ++changes_;
    changed_.notify_all();
}

void CameraCapture::forget(const FaceObserver* observer) {
    std::erase_if(runs_, [&](const Run& run) { return run.identity == observer; });
}

std::shared_ptr<FaceObserver> CameraCapture::newest() {
    const std::lock_guard lock(mutex_);
    while (!ending_ && !runs_.empty()) {
        if (auto observer = runs_.back().observer.lock()) return observer;
        runs_.pop_back();
    }
    return nullptr;
}

void CameraCapture::work() {
    platform::beginLibraryThread("tarvex-camera");
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ending_ || (!runs_.empty() && runCount_ != givenUpRun_); });
        if (ending_) break;
        servedRun_ = runCount_;
        lock.unlock();
        serve();
        lock.lock();
    }
    ended_ = true;
    changed_.notify_all();
}

void CameraCapture::serve() {
    auto capture = open_();
    if (!capture) return giveUp(capture.error());
    look(*capture);
}

void CameraCapture::look(OpenCapture& capture) {
    auto lastFrame = Clock::now();
    auto nextLook = lastFrame;
    Clock::duration stall = openingStall;
    while (const auto observer = newest()) {
        if (!observer->isDue()) {
            waitForChange(Clock::now() + lookInterval);
            lastFrame = Clock::now();
            continue;
        }
        if (waitForChange(nextLook)) continue;
        std::optional<platform::Anchor> face;
        const auto came =
            capture.source->next(framePatience, [&](const Frame& frame) { face = capture.finder(frame); });
        if (!came) return giveUp(came.error());
        const auto now = Clock::now();
        if (*came) {
            lastFrame = now;
            nextLook = now + lookInterval;
            stall = runningStall;
            lastReport_.reset();
        }
        if (now - lastFrame > stall) report("the camera is open, but delivers no frames");
        if (face && newest() == observer) observer->faceFound(*face);
    }
}

bool CameraCapture::waitForChange(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    const auto before = changes_;
    return changed_.wait_until(lock, deadline, [&] { return changes_ != before; });
}

void CameraCapture::giveUp(const std::string& why) {
    report(why);
    const std::lock_guard lock(mutex_);
    givenUpRun_ = servedRun_;
}

void CameraCapture::report(const std::string& why) {
    if (why == lastReport_) return;
    lastReport_ = why;
    sayThatNothingIsMeasured(why);
}

}  // namespace tarvex::camera
