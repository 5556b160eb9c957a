// The kernel's tree at its real place: umockdev redirects this process's view of /sys, which is why this executable
// runs with its library preloaded.

#include <umockdev.h>

#include "platform/glib/glib_run_loop.h"
#include "platform/iio/iio_hid_event_system.h"
#include "platform/shared/handle.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

TEST(IioHidEventSystem, ReadsADeviceAtItsRealPlace) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "umockdev's own worker thread synchronises through GLib, which the thread sanitizer cannot follow";
#endif
    const Handle<UMockdevTestbed, g_object_unref> bed(umockdev_testbed_new());
    ASSERT_TRUE(umockdev_in_mock_environment()) << "LD_PRELOAD lacks libumockdev-preload.so.0";
    const Handle<char, g_free> path(umockdev_testbed_add_device(
        bed.get(), "iio", "iio:device0", nullptr, "name", "als\n", "in_illuminance_raw", "1000\n",
        "in_illuminance_scale", "0.5\n", "in_intensity_both_raw", "1000\n", nullptr, "DEVTYPE", "iio_device", nullptr));
    GLibRunLoop loop;
    const auto client = IioHidEventSystem().createClient();
    client->setMatching({0xFF00, 4});
    const auto services = client->copyServices();
    ASSERT_THAT(services, SizeIs(1));
    services.front()->setProperty("ReportInterval", 100'000);
    std::function<void(std::intptr_t)> receive = [&, expected = 500](std::intptr_t level) mutable {
        EXPECT_EQ(level, std::exchange(expected, 1000));
        umockdev_testbed_set_attribute(bed.get(), path.get(), "in_illuminance_raw", "2000\n");
        if (level == 1000) loop.stop();
    };
    const auto callback = [](void* target, void*, HidServiceClient*, HidEvent* event) {
        (*static_cast<decltype(receive)*>(target))(event->integerValue(ambientLightLevelField));
    };
    client->scheduleWithRunLoop(loop);
    client->registerEventCallback(callback, &receive, nullptr);
    loop.run();
}

}  // namespace
}  // namespace tarvex::platform
