#include "platform/linux/device_node_capture_device.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/host/property_list_documents.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using namespace test;

// Gives each block a thread, and time to answer too early.
class EagerQueues final : public DispatchQueues {
public:
    explicit EagerQueues(const std::atomic<int>& answers) : answers_(answers) {}

    void mainAsync(std::function<void()>) override { ADD_FAILURE() << "the main thread is not needed"; }

    void backgroundAfter(std::chrono::nanoseconds, std::function<void()> block) override {
        threads_.emplace_back(std::move(block));
        for (int turn = 0; turn < 1000; ++turn)
            std::this_thread::yield();
        EXPECT_EQ(answers_, 0) << "answered before the request has returned";
    }

    void wait() { threads_.clear(); }

private:
    const std::atomic<int>& answers_;
    std::list<std::jthread> threads_;
};

TEST(DeviceNodeCaptureDevice, AnswersFromTheVideoDevicesThatTheUserMayOpen) {
    struct Case {
        const char* description;
        std::vector<std::string> usable;
        std::vector<std::string> unusable;
        bool granted;
    };
    for (const Case& c :
         {Case{"no device", {}, {}, true}, Case{"other devices only", {}, {"video", "video1x", "media0"}, true},
          Case{"a usable camera", {"video0"}, {}, true}, Case{"a camera that cannot be opened", {}, {"video0"}, false},
          Case{"one of two can be opened", {"video10"}, {"video2"}, true}}) {
        SCOPED_TRACE(c.description);
        const TemporaryDirectory devices;
        for (const std::string& name : c.usable)
            writeFile(devices.path() / name, "");
        // A node without a device behind it: opening it fails for every user, root included.
        for (const std::string& name : c.unusable)
            std::filesystem::create_symlink("gone", devices.path() / name);

        std::atomic<int> answers = 0;
        std::atomic<bool> answer = !c.granted;
        EagerQueues queues(answers);
        DeviceNodeCaptureDevice(queues, devices.path()).requestAccessForVideo([&](bool granted) {
            answer = granted;
            ++answers;
        });
        queues.wait();
        EXPECT_EQ(answers, 1);
        EXPECT_EQ(answer, c.granted);
    }
}

}  // namespace
}  // namespace tarvex::platform
