#include "platform/camera/capture/camera_capture.h"

#include "platform/camera/capture/camera_scene_view.h"
#include "platform/camera/scripted_frame_source.h"
#include "prelude.h"

namespace tarvex::camera {

namespace {

using platform::RunOptions;
using test::ScriptedCamera;

constexpr RunOptions startAfresh{.resetTracking = true, .removeExistingAnchors = true};

/// Keeps what it is told; its lists are the capture's thread's until the camera is closed.
struct RecordingDelegate final : platform::FaceTrackingDelegate {
    std::shared_ptr<platform::SceneNode> nodeForAnchor(const platform::Anchor& /*anchor*/) override {
        threads.insert(std::this_thread::get_id());
        ++nodes;
        return std::make_shared<platform::SceneNode>();
    }
    void didUpdateNode(platform::SceneNode& node, const platform::Anchor& /*anchor*/) override {
        threads.insert(std::this_thread::get_id());
        depths.push_back(-node.worldPosition().z);
        ++updates;
        if (onUpdate) onUpdate();
    }

    std::function<void()> onUpdate;  ///< set before the first run
    std::atomic<int> updates = 0;
    std::atomic<int> nodes = 0;
    std::vector<float> depths;
    std::set<std::thread::id> threads;
};

class CameraSession : public ::testing::Test {
protected:
    struct Watched {
        std::shared_ptr<CameraSceneView> view;
        std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();

        void run(RunOptions options = startAfresh) const { view->session().run({}, options); }
        void pause() const { view->session().pause(); }
    };

    Watched watch() {
        Watched watched{.view = std::make_shared<CameraSceneView>(capture)};
        watched.view->setDelegate(watched.delegate);
        watched.view->setPreferredFramesPerSecond(1);
        return watched;
    }

    bool looksOn() {
        const int before = device.frames;
        return eventually([&] { return device.frames > before + 2; });
    }

    ScriptedCamera device;
    std::shared_ptr<CameraCapture> capture = std::make_shared<CameraCapture>(device.opener());
};

}  // namespace

TEST_F(CameraSession, MeasuresOnceOnTheCapturesThreadAndClosesTheCamera) {
    const Watched watched = watch();
    watched.delegate->onUpdate = [&] { watched.pause(); };
    EXPECT_EQ(device.opened, 0);
    for (int run = 1; run <= 3; ++run) {
        device.depth = 0.25F * static_cast<float>(run);
        watched.run();
        ASSERT_TRUE(eventually([&] { return device.closed == run; }));
        EXPECT_EQ(watched.delegate->updates, run);
    }
    EXPECT_THAT(watched.delegate->depths, ElementsAre(0.25F, 0.5F, 0.75F));
    EXPECT_EQ(watched.delegate->nodes, 3) << "each run removes the anchors of the one before";
    EXPECT_EQ(watched.delegate->threads.size(), 1U);
    EXPECT_FALSE(watched.delegate->threads.contains(std::this_thread::get_id()));
}

TEST_F(CameraSession, KeepsToThePreferredFrameRateAndLooksNoOftenerThanItCanTell) {
    const Watched watched = watch();
    const auto start = std::chrono::steady_clock::now();
    watched.run();
    ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 2; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_LE(device.frames, 3);
    EXPECT_EQ(watched.delegate->nodes, 1) << "the same face is the same anchor";
}

TEST_F(CameraSession, ARunThatResetsKeepsTheCameraOpenAndOneThatKeepsAnchorsKeepsTheNode) {
    const Watched watched = watch();
    watched.run();
    ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 1; }));
    watched.run(startAfresh);
    ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 2; }));
    EXPECT_EQ(watched.delegate->nodes, 2);
    watched.run({.resetTracking = true, .removeExistingAnchors = false});
    ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 3; }));
    EXPECT_EQ(watched.delegate->nodes, 2);
    EXPECT_EQ(device.opened, 1);
    EXPECT_TRUE(device.isOpen());
    watched.pause();
    EXPECT_TRUE(eventually([&] { return !device.isOpen(); }));
}

TEST_F(CameraSession, ShowsFramesToTheNewestAndClosesWithTheLastPause) {
    const Watched first = watch();
    const Watched second = watch();
    first.run();
    ASSERT_TRUE(eventually([&] { return first.delegate->updates == 1; }));
    second.run();
    ASSERT_TRUE(eventually([&] { return second.delegate->updates == 2; }));
    EXPECT_EQ(first.delegate->updates, 1);
    second.pause();
    ASSERT_TRUE(eventually([&] { return first.delegate->updates == 2; }));
    EXPECT_EQ(device.opened, 1);
    first.pause();
    first.pause();
    EXPECT_TRUE(eventually([&] { return device.closed == 1; }));
}

TEST_F(CameraSession, LooksOnWhileThereIsNoFaceAndTellsNobody) {
    device.showsFace = false;
    const Watched watched = watch();
    watched.run();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(looksOn());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms) << "ten frames a second are enough";
    EXPECT_EQ(watched.delegate->nodes, 0);
    watched.pause();
    EXPECT_TRUE(eventually([&] { return device.closed == 1; }));
}

TEST_F(CameraSession, AFailedCameraIsClosedSaidOnceAndTriedAgainByTheNextRun) {
    struct Case {
        const char* name;
        std::atomic<bool> ScriptedCamera::* fault;
        const char* line;
    };
    for (const Case& c : {Case{"busy", &ScriptedCamera::refusesToOpen, "the camera is busy"},
                          Case{"unplugged", &ScriptedCamera::isUnplugged, "the camera is gone"}}) {
        SCOPED_TRACE(c.name);
        const Watched watched = watch();
        device.attempts = 0;
        device.*c.fault = true;
        ::testing::internal::CaptureStderr();
        for (int run = 0; run < 3; ++run) {
            const int attempts = device.attempts;
            watched.run();
            ASSERT_TRUE(eventually([&] { return device.attempts > attempts; }));
        }
        device.*c.fault = false;
        watched.run();
        ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 1; }));
        watched.pause();
        ASSERT_TRUE(eventually([&] { return !device.isOpen(); }));
        EXPECT_LE(device.attempts, 4) << "one for each run";
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  std::string("Tarvex: no distance is measured: ") + c.line + "\n");
    }
}

TEST_F(CameraSession, AStreamThatStallsIsNamedAndLeftAtThePause) {
    device.stalls = true;
    const Watched watched = watch();
    ::testing::internal::CaptureStderr();
    watched.run();
    ASSERT_TRUE(eventually([&] { return device.waits > 41; })) << "of 50 ms each";
    watched.pause();
    EXPECT_TRUE(eventually([&] { return device.closed == 1; }));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("delivers no frames"));
    EXPECT_EQ(watched.delegate->updates, 0);
}

TEST_F(CameraSession, AViewThatGoesAwayDuringARunClosesTheCamera) {
    {
        const Watched watched = watch();
        watched.run();
        ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 1; }));
    }
    EXPECT_TRUE(eventually([&] { return device.closed == 1; }));
}

TEST_F(CameraSession, TheCaptureMayEndDuringARunAndViewsOutliveIt) {
    const Watched watched = watch();
    watched.run();
    ASSERT_TRUE(eventually([&] { return watched.delegate->updates == 1; }));
    capture.reset();
    EXPECT_EQ(device.closed, 1);
    watched.run();
    watched.pause();
    EXPECT_EQ(device.opened, 1);
}

}  // namespace tarvex::camera
