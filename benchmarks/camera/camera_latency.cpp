// How long a distance takes through a camera of PipeWire, and how long the camera is open for it.
// usage: tarvex_camera_latency MODEL-DIRECTORY PICTURE
#include <gst/gst.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/camera/capture/frame_pipeline.h"
#include "platform/camera/live_pipewire.h"
#include "platform/camera/scripted_frame_source.h"
#include "platform/camera/tracked_camera.h"
#include "platform/camera/user_camera.h"
#include "sensors/distance_tracking.h"

namespace tarvex::benchmarks {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using test::LivePipeWire;

constexpr int ticks = 11;

double inMilliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

double median(std::vector<double> values) {
    if (values.empty()) return -1;
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// Once the user has exactly one camera.
void awaitCamera() {
    if (!eventually([] { return camera::userCameraNames().value_or(std::vector<std::string>()).size() == 1; }))
        throw std::runtime_error("the simulated camera does not appear");
}

/// One frame of the photograph in a file.
void writeFrame(const std::string& photograph, const LivePipeWire::Shown& shown) {
    const bool isCompressed = shown.format == "JPEG";
    const auto size = ",width=" + std::to_string(shown.size.first) + ",height=" + std::to_string(shown.size.second);
    test::record("filesrc location=\"" + photograph + "\" ! jpegdec ! videoconvert ! videoscale ! video/x-raw" +
                     (isCompressed ? "" : ",format=" + shown.format) + size + (isCompressed ? " ! jpegenc" : ""),
                 shown.file);
}

/// The times between a camera's beginning and end that its log shows, in milliseconds.
std::vector<double> timesOpen(const std::filesystem::path& log) {
    std::ifstream lines(log);
    std::vector<double> times;
    double begin = 0;
    double end = 0;
    while (lines >> begin >> end)
        times.push_back(end - begin);
    return times;
}

void measure(const std::string& models, const std::string& photograph, LivePipeWire::Shown shown) {
    const test::TemporaryDirectory directory;
    shown.file = directory.path() / "frame";
    shown.log = directory.path() / "log";
    writeFrame(photograph, shown);
    const auto simulated = LivePipeWire::camera("Simulated", shown);
    awaitCamera();
    std::vector<double> latencies;
    {
        const test::Tracked tracked(camera::Options{.modelDirectory = models});
        const auto tracking = DistanceTracking::make(*tracked.platform, *tracked.store);
        const auto host = makeHeadlessView();
        for (int tick = 0; tick < ticks; ++tick) {
            const auto before = tracked.store->countTrackingData();
            const auto begin = Clock::now();
            tracking->beginMeasurement(host);
            while (tracked.store->countTrackingData() == before && Clock::now() - begin < 3s)
                std::this_thread::sleep_for(200us);
            if (tracked.store->countTrackingData() > before) latencies.push_back(inMilliseconds(Clock::now() - begin));
            std::this_thread::sleep_for(500ms);
        }
    }
    std::printf("| %s | %d × %d | %zu of %d | %.0f ms | %.0f ms |\n", shown.format.c_str(), shown.size.first,
                shown.size.second, latencies.size(), ticks, median(latencies), median(timesOpen(shown.log)));
    std::fflush(stdout);
}

/// Until the first frame; negative when none came.
double firstFrame(auto open) {
    const auto begin = Clock::now();
    auto source = open();
    bool came = false;
    while (source && !came && Clock::now() - begin < 3s)
        came = source->next(50ms, [](const camera::Frame&) {}).value_or(false);
    return came ? inMilliseconds(Clock::now() - begin) : -1;
}

/// Whether there is a camera, as a start asks.
void measureQuery() {
    const auto simulated = LivePipeWire::camera("Simulated");
    awaitCamera();
    std::vector<double> times;
    for (int query = 0; query < ticks; ++query) {
        const auto begin = Clock::now();
        if (camera::checkUserCamera()) times.push_back(inMilliseconds(Clock::now() - begin));
    }
    std::printf("\nWhether there is a camera: %.1f ms, at most %.1f ms.\n", median(times), std::ranges::max(times));
}

void compareWithElement() {
    gst_init(nullptr, nullptr);
    GstElementFactory* factory = gst_element_factory_find("pipewiresrc");
    if (factory == nullptr) return;
    gst_object_unref(factory);
    const auto simulated = LivePipeWire::camera("Simulated");
    awaitCamera();
    std::vector<double> own;
    std::vector<double> elements;
    for (int tick = 0; tick < ticks; ++tick) {
        own.push_back(firstFrame([] { return std::move(camera::openUserCamera({})->frames); }));
        std::this_thread::sleep_for(300ms);
        elements.push_back(firstFrame(
            [] { return camera::FramePipeline::open({.head = "pipewiresrc name=source", .name = "camera"}).value(); }));
        std::this_thread::sleep_for(300ms);
    }
    std::printf("\nFirst frame: %.0f ms, the search for the camera included; GStreamer's pipewiresrc: %.0f ms.\n",
                median(own), median(elements));
}

void measureAll(const std::string& models, const std::string& photograph) {
    const LivePipeWire pipeWire;
    std::printf("| Format | Size | Samples | Tick to sample | Camera open |\n|---|---|---|---|---|\n");
    for (const char* format : {"YUY2", "NV12", "I420", "GRAY8", "JPEG"}) {
        for (const auto& size : {std::pair(320, 240), {640, 480}, {1280, 720}, {1920, 1080}})
            measure(models, photograph, {.format = format, .size = size});
    }
    measureQuery();
    compareWithElement();
}

}  // namespace
}  // namespace tarvex::benchmarks

int main(int count, char** arguments) {
    if (count != 3) return 2;
    tarvex::benchmarks::measureAll(arguments[1], arguments[2]);
    return 0;
}
