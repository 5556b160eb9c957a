#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/camera/capture/frame_source.h"
#include "platform/shared/exit_parking.h"

namespace tarvex::camera {

/// Receiver of the face while it runs. Called on the capture's thread.
class FaceObserver {
public:
    virtual ~FaceObserver() = default;

    /// True when the observer needs a face now; while it does not, frames are dropped unseen.
    virtual bool isDue() = 0;
    virtual void faceFound(const platform::Anchor& anchor) = 0;
};

/// An open source of frames, and the finder that evaluates them.
struct OpenCapture {
    std::unique_ptr<FrameSource> source;
    FaceFinder finder;
};
using CaptureOpener = std::function<std::expected<OpenCapture, std::string>()>;

/// The one capture of a process: opens its source while somebody runs, and shows what it finds to the newest runner.
///
/// Thread-safe. All work, opening included, is done on a thread of its own, which begins with the first run and sleeps
/// without waking up while nobody runs. A source that fails is closed, and opened again by the next run; the reason is
/// logged as a warning, once until another reason comes.
class CameraCapture {
public:
    explicit CameraCapture(CaptureOpener open);
    ~CameraCapture();
    CameraCapture(const CameraCapture&) = delete;
    CameraCapture& operator=(const CameraCapture&) = delete;

    /// Closes the source after the look it is in and waits for the capture's thread to end; later runs do nothing. For
    /// the owner, once and on another thread: whoever holds this for the length of a call may then be the last to let
    /// go of it, on any thread.
    ///
    /// When the process exits first, its exit does the same, and waits for at most two seconds.
    void finish();

    /// The observer becomes the newest; it is held weakly. A source that is open stays open.
    void run(const std::shared_ptr<FaceObserver>& observer);
    /// After the last one's pause, the source is closed.
    void pause(const FaceObserver& observer);

private:
    using Clock = std::chrono::steady_clock;

    struct Run {
        const FaceObserver* identity;
        std::weak_ptr<FaceObserver> observer;
    };

    friend class platform::ExitParking<CameraCapture>;
    static constexpr std::chrono::seconds exitGrace{2};
    void stopForExit();
    void awaitStop(Clock::time_point deadline);

    void work();
    void serve();
    void look(OpenCapture& capture);
    /// Returns at the deadline, or with true as soon as a run or a pause comes.
    bool waitForChange(Clock::time_point deadline);
    void giveUp(const std::string& why);
    void report(const std::string& why);
    void forget(const FaceObserver* observer);
    std::shared_ptr<FaceObserver> newest();

    const CaptureOpener open_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Run> runs_;                    ///< the newest last
    std::uint64_t changes_ = 0;                ///< of the runs
    std::uint64_t runCount_ = 0;               ///< of all runs ever
    std::uint64_t servedRun_ = 0;              ///< the newest when the source was opened
    std::optional<std::uint64_t> givenUpRun_;  ///< the newest when the source failed
    bool ending_ = false;
    bool ended_ = false;                     ///< the thread has left everything but its stack
    std::optional<std::string> lastReport_;  ///< of the thread alone
    std::thread thread_;
};

}  // namespace tarvex::camera
