#include "accuracy/photograph_session.h"

#include <sys/resource.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "benchmark_memory.h"
#include "platform/camera/camera_face_tracking.h"

namespace tarvex::benchmarks {
namespace {

using namespace std::chrono_literals;

/// Pauses the session with its first face, as a measurement does.
class FirstFace final : public platform::FaceTrackingDelegate {
public:
    explicit FirstFace(platform::FaceTrackingSession& session) : session_(session) {}

    std::shared_ptr<platform::SceneNode> nodeForAnchor(const platform::Anchor& /*anchor*/) override {
        return std::make_shared<platform::SceneNode>();
    }

    void didUpdateNode(platform::SceneNode& /*node*/, const platform::Anchor& /*anchor*/) override {
        const auto memory = residentMemory();
        session_.pause();
        memory_.set_value(memory);
    }

    std::future<std::int64_t> memory() { return memory_.get_future(); }

private:
    platform::FaceTrackingSession& session_;
    std::promise<std::int64_t> memory_;
};

/// Of all threads of the process, also those that have ended.
rusage used() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage;
}

double milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

double processorMilliseconds(const rusage& usage) {
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

}  // namespace

std::optional<SessionFigures> photographSession(const std::filesystem::path& models,
                                                const std::filesystem::path& photograph, std::chrono::seconds watched) {
    const auto memoryBefore = residentMemory();
    camera::CameraFaceTracking tracking({.source = camera::Pictures{.paths = {photograph}}, .modelDirectory = models});
    const auto view = tracking.makeSceneView();
    const auto delegate = std::make_shared<FirstFace>(view->session());
    view->setDelegate(delegate);
    view->session().run({}, {.resetTracking = true, .removeExistingAnchors = true});
    auto memory = delegate->memory();
    if (memory.wait_for(20s) != std::future_status::ready) return std::nullopt;
    SessionFigures figures{.openMemory = static_cast<double>(memory.get() - memoryBefore)};

    std::this_thread::sleep_for(1s);  // to close the source is part of the measurement
    const rusage before = used();
    std::this_thread::sleep_for(watched);
    const rusage after = used();
    figures.pausedProcessor = processorMilliseconds(after) - processorMilliseconds(before);
    figures.pausedSwitches = static_cast<double>(after.ru_nvcsw - before.ru_nvcsw);
    return figures;
}

}  // namespace tarvex::benchmarks
