#include "platform/camera/capture/camera_capture.h"

#include "platform/camera/capture/camera_scene_view.h"
#include "platform/camera/scripted_frame_source.h"
#include "recorded_log.h"

namespace tarvex::camera {

namespace {

using platform::RunOptions;

constexpr RunOptions startAfresh{.resetTracking = true, .removeExistingAnchors = true};

/// A view and its delegate, which counts; the lists are the capture's thread's until the camera is closed.
struct Watcher final : platform::FaceTrackingDelegate {
    static std::shared_ptr<Watcher> of(const std::shared_ptr<CameraCapture>& capture) {
        auto watcher = std::make_shared<Watcher>();
        watcher->view = std::make_shared<CameraSceneView>(capture);
        watcher->view->setDelegate(watcher);
        watcher->view->setPreferredFramesPerSecond(1);
        return watcher;
    }

    void run(RunOptions options = startAfresh) const { view->session().run({}, options); }
    void pause() const { view->session().pause(); }
    bool sees(int count) const {
        return eventually([&] { return updates == count; });
    }

    std::shared_ptr<platform::SceneNode> nodeForAnchor(const platform::Anchor& /*anchor*/) override {
        threads.insert(std::this_thread::get_id());
        ++nodes;
        return std::make_shared<platform::SceneNode>();
    }
    void didUpdateNode(platform::SceneNode& node, const platform::Anchor& /*anchor*/) override {
        threads.insert(std::this_thread::get_id());
        depths.push_back(-node.worldPosition().z);
        ++updates;
        if (pausesAtOnce) pause();
    }

    std::shared_ptr<CameraSceneView> view;
    std::atomic<bool> pausesAtOnce = false;
    std::atomic<int> updates = 0;
    std::atomic<int> nodes = 0;
    std::vector<float> depths;
    std::set<std::thread::id> threads;
};

class CameraSession : public ::testing::Test {
protected:
    bool isClosed(int times = 1) {
        return eventually([&] { return device.closed == times; });
    }

    test::ScriptedCamera device;
    std::shared_ptr<CameraCapture> capture = std::make_shared<CameraCapture>(device.opener());
    std::shared_ptr<Watcher> watcher = Watcher::of(capture);
};

}  // namespace

TEST_F(CameraSession, MeasuresOnceOnTheCapturesThreadAndClosesTheCamera) {
    watcher->pausesAtOnce = true;
    EXPECT_EQ(device.opened, 0);
    for (int run = 1; run <= 3; ++run) {
        device.depth = 0.25F * static_cast<float>(run);
        watcher->run();
        ASSERT_TRUE(isClosed(run));
        EXPECT_EQ(watcher->updates, run);
    }
    EXPECT_THAT(watcher->depths, ElementsAre(0.25F, 0.5F, 0.75F));
    EXPECT_EQ(watcher->nodes, 3) << "each run removes the anchors of the one before";
    EXPECT_EQ(watcher->threads.size(), 1U);
    EXPECT_FALSE(watcher->threads.contains(std::this_thread::get_id()));
}

TEST_F(CameraSession, KeepsThePreferredFrameRateTheCameraAndTheNodeWithItsAnchor) {
    const auto start = std::chrono::steady_clock::now();
    watcher->run();
    ASSERT_TRUE(watcher->sees(2));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_LE(device.frames, 3) << "no frame is looked at that is not due";
    EXPECT_EQ(watcher->nodes, 1) << "the same face is the same anchor";
    watcher->run(startAfresh);
    ASSERT_TRUE(watcher->sees(3));
    EXPECT_EQ(watcher->nodes, 2);
    watcher->run({.resetTracking = true, .removeExistingAnchors = false});
    ASSERT_TRUE(watcher->sees(4));
    EXPECT_EQ(watcher->nodes, 2);
    EXPECT_EQ(device.opened, 1);
    EXPECT_EQ(device.closed, 0);
    watcher->pause();
    EXPECT_TRUE(isClosed());
}

TEST_F(CameraSession, ShowsFramesToTheNewestAndClosesWithTheLastPause) {
    const auto second = Watcher::of(capture);
    watcher->run();
    ASSERT_TRUE(watcher->sees(1));
    second->run();
    ASSERT_TRUE(second->sees(2));
    EXPECT_EQ(watcher->updates, 1);
    second->pause();
    ASSERT_TRUE(watcher->sees(2));
    EXPECT_EQ(device.opened, 1);
    watcher->pause();
    watcher->pause();
    EXPECT_TRUE(isClosed());
}

TEST_F(CameraSession, LooksOnWithoutAReportWhileThereIsNoFace) {
    device.showsFace = false;
    const auto start = std::chrono::steady_clock::now();
    watcher->run();
    EXPECT_TRUE(eventually([&] { return device.frames > 2; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms) << "ten frames a second are enough";
    EXPECT_EQ(watcher->nodes, 0);
    watcher->pause();
    EXPECT_TRUE(isClosed());
}

TEST_F(CameraSession, ReportsAFailedCameraOnceClosesItAndTriesAgainWithTheNextRun) {
    for (const auto& [fault, line] : {std::pair{&test::ScriptedCamera::refusesToOpen, "the camera is busy"},
                                      {&test::ScriptedCamera::isUnplugged, "the camera is gone"}}) {
        SCOPED_TRACE(line);
        const int updates = watcher->updates;
        device.attempts = 0;
        device.*fault = true;
        const test::RecordedLog log;
        for (int run = 0; run < 3; ++run) {
            const int attempts = device.attempts;
            watcher->run();
            ASSERT_TRUE(eventually([&] { return device.attempts > attempts; }));
        }
        device.*fault = false;
        watcher->run();
        ASSERT_TRUE(watcher->sees(updates + 1));
        watcher->pause();
        ASSERT_TRUE(isClosed(device.opened));
        EXPECT_LE(device.attempts, 4) << "one for each run";
        EXPECT_THAT(log.lines(), ElementsAre(std::string("no distance is measured: ") + line));
    }
}

TEST_F(CameraSession, ReportsAStreamThatStallsAndLeavesItAtThePause) {
    device.stalls = true;
    const test::RecordedLog log;
    watcher->run();
    ASSERT_TRUE(eventually([&] { return device.waits > 41; })) << "of 50 ms each";
    watcher->pause();
    EXPECT_TRUE(isClosed());
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("delivers no frames")));
    EXPECT_EQ(watcher->updates, 0);
}

TEST_F(CameraSession, EndsWithItsViewOrItsCapture) {
    watcher->run();
    ASSERT_TRUE(watcher->sees(1));
    watcher->view.reset();
    EXPECT_TRUE(isClosed());

    watcher = Watcher::of(capture);
    watcher->run();
    ASSERT_TRUE(watcher->sees(1));
    capture.reset();
    EXPECT_EQ(device.closed, 2);
    watcher->run();
    watcher->pause();
    EXPECT_EQ(device.opened, 2);
}

}  // namespace tarvex::camera
