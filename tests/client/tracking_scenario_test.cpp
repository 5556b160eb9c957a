// Sessions on real queues, timers, threads and the main loop; all but the camera's frames and the portal is real.

#include "platform/camera/capture/camera_scene_view.h"
#include "platform/camera/scripted_frame_source.h"
#include "platform/glib/glib_timer_scheduler.h"
#include "platform/iio/sensor_tree.h"
#include "platform/portal/portal_services.h"
#include "tarvex/client.h"
#include "test_platform.h"

// The thread of the last question to the portal is joined by the next one.
extern "C" TARVEX_EXPORT const char* __tsan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "report_thread_leaks=0";
}

namespace tarvex {
namespace {

struct ScriptedCameraTracking final : platform::FaceTracking {
    ~ScriptedCameraTracking() override { capture->finish(); }
    bool isSupported() const override { return true; }
    int supportedNumberOfTrackedFaces() const override { return 1; }
    std::shared_ptr<platform::FaceTrackingSceneView> makeSceneView() override {
        return std::make_shared<camera::CameraSceneView>(capture);
    }
    test::ScriptedCamera device;
    std::shared_ptr<camera::CameraCapture> capture = std::make_shared<camera::CameraCapture>(device.opener());
};

struct TenTimesAsFast final : platform::TimerScheduler {
    std::shared_ptr<platform::Timer> scheduledTimer(double interval, std::function<void()> block) override {
        return platform::GLibTimerScheduler().scheduledTimer(interval / 10, std::move(block));
    }
};

void installPlatform(const std::filesystem::path& directory, const std::filesystem::path& sensors) {
    writeFile(directory / "Info.plist", "<plist><dict><key>NSCameraUsageDescription</key><true/></dict></plist>");
    auto made = platform::Platform::makeLinux(
        {.dataDirectory = directory / "data", .bundleDirectory = directory, .sensorRoot = sensors});
    made->setFaceTracking(std::make_unique<ScriptedCameraTracking>());
    made->setTimerScheduler(std::make_unique<TenTimesAsFast>());
    made->setCaptureDevice(std::make_unique<platform::PortalCaptureDevice>(made->mainRunLoop(), [] { return true; }));
    ASSERT_TRUE(platform::Platform::install(std::move(made)));
}

}  // namespace

TEST(TrackingScenario, ConsentCallbacksStartAndStopSessionsWhileTheMainLoopTicks) {
    const TemporaryDirectory directory;
    test::SensorTree sensors;
    sensors.plug(0, "in_illuminance_input=250");
    installPlatform(directory.path(), sensors.root());
    Client& client = Client::shared();
    auto& loop = platform::Platform::current().mainRunLoop();
    auto& queues = platform::Platform::current().dispatchQueues();

    const std::vector readers{DataReader::distance(1), DataReader::ambientLight(1)};
    const auto mainThread = std::this_thread::get_id();
    std::vector<std::thread::id> ends;
    const auto watchedView = [&ends] {
        const auto view = makeHeadlessView();
        return std::shared_ptr<View>(view.get(), [view, &ends](View*) { ends.push_back(std::this_thread::get_id()); });
    };
    std::shared_ptr<View> view;
    std::jthread stopper;
    int cycle = 0;
    std::function<void()> nextCycle;
    const auto decide = [&](bool) {
        const auto caller = std::this_thread::get_id();
        EXPECT_NE(caller, mainThread);
        client.startTracking(readers, view, [&](const Client::Result& result, const auto&) {
            EXPECT_TRUE(result);
            EXPECT_EQ(std::this_thread::get_id(), caller);
        });
        const auto before = client.trackingDataCount();
        EXPECT_TRUE(eventually([&] { return client.trackingDataCount() >= before + 4; }));
        std::binary_semaphore due(0);
        queues.backgroundAfter(0ms, [&] { due.release(); });
        EXPECT_TRUE(due.try_acquire_for(10s)) << "a deadline waits for no callback";
        if (cycle % 2 == 0) client.stopTracking();
        for (const DataReader& reader : readers)
            client.stopTracking(reader);
        EXPECT_THAT(client.trackingInProgress(), Each(Pair(::testing::_, false)));
        loop.perform(nextCycle);
    };
    const ui::Element screen = client.informationView("Scenario", {}, readers, {}, decide).body();
    nextCycle = [&] {
        // What lies in the scene view ends with it.
        if (view) view->subviews().front()->addSubview(watchedView());
        view.reset();
        // After the last run's pause, and after what that has queued.
        if (++cycle > 6)
            return queues.backgroundAfter(
                3s, [&] { queues.mainAsync([&] { stopper = std::jthread([&] { loop.stop(); }); }); });
        view = watchedView();
        std::get<ui::Button>(std::get<ui::VStack>(screen.content).children.back().content).action();
    };
    nextCycle();
    loop.run();

    EXPECT_THAT(ends, ::testing::AllOf(SizeIs(12), Each(mainThread)));
    const auto document = PersistenceController::shared().loadTrackingData([] { return Sender(); });
    EXPECT_THAT(std::string(document->view()), ::testing::AllOf(HasSubstr("leftEye"), HasSubstr(R"("lux":250)")));
}

}  // namespace tarvex
