// The kernel's tree at its real place: umockdev redirects this process's view of /sys, which is why this executable
// runs with its library preloaded.

#include <umockdev.h>

#include "platform/linux/loop/glib_run_loop.h"
#include "platform/linux/sensor/iio_hid_event_system.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

using Testbed = std::unique_ptr<UMockdevTestbed, decltype([](UMockdevTestbed* bed) { g_object_unref(bed); })>;
using OwnedText = std::unique_ptr<char, decltype([](char* text) { g_free(text); })>;

struct Received {
    RunLoop& loop;
    UMockdevTestbed& bed;
    std::string device;
    std::vector<std::intptr_t> levels;

    static void receive(void* target, void*, HidServiceClient*, HidEvent* event) {
        auto& self = *static_cast<Received*>(target);
        self.levels.push_back(event->integerValue(ambientLightLevelField));
        umockdev_testbed_set_attribute(&self.bed, self.device.c_str(), "in_illuminance_raw", "2000\n");
        if (self.levels.size() == 2) self.loop.stop();
    }
};

TEST(IioHidEventSystem, ReadsADeviceAtItsRealPlace) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "umockdev's own worker thread synchronises through GLib, which the thread sanitizer cannot follow";
#endif
    const Testbed bed(umockdev_testbed_new());
    ASSERT_TRUE(umockdev_in_mock_environment()) << "LD_PRELOAD lacks libumockdev-preload.so.0";
    const OwnedText path(umockdev_testbed_add_device(
        bed.get(), "iio", "iio:device0", nullptr, "name", "als\n", "in_illuminance_raw", "1000\n",
        "in_illuminance_scale", "0.5\n", "in_intensity_both_raw", "1000\n", nullptr, "DEVTYPE", "iio_device", nullptr));
    ASSERT_NE(path, nullptr);

    GLibRunLoop loop;
    const auto client = IioHidEventSystem().createClient();
    client->setMatching({0xFF00, 4});
    const auto services = client->copyServices();
    ASSERT_THAT(services, SizeIs(1));
    services.front()->setProperty("ReportInterval", 100'000);
    Received received{loop, *bed, path.get(), {}};
    client->scheduleWithRunLoop(loop);
    client->registerEventCallback(Received::receive, &received, nullptr);
    loop.run();
    EXPECT_THAT(received.levels, ElementsAre(500, 1000));
}

}  // namespace
}  // namespace tarvex::platform
