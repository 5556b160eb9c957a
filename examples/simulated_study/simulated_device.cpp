#include "simulated_device.h"

#include <tarvex/platform/platform.h>
#include <tarvex/testing/loopback_url_session.h>

#include <chrono>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace simulated_study {

namespace {

using tarvex::platform::Anchor;
using tarvex::platform::Platform;
using tarvex::platform::Transform;

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("Cannot read " + path.string() + ": is the collector running?");
    return {std::istreambuf_iterator<char>(file), {}};
}

std::uint16_t portIn(const std::filesystem::path& path) {
    int port = 0;
    std::ifstream file(path);
    if (!(file >> port) || port < 1 || port > 65535)
        throw std::runtime_error("Cannot read a port from " + path.string() + ": is the collector running?");
    return static_cast<std::uint16_t>(port);
}

/// Gives the platform a service through `set` and keeps a pointer to it.
template <typename Service, typename Base>
Service* add(Platform& platform, void (Platform::*set)(std::unique_ptr<Base>), std::unique_ptr<Service> service) {
    Service* kept = service.get();
    (platform.*set)(std::move(service));
    return kept;
}

Transform straightAhead(double centimetres) {
    Transform transform = Transform::identity();
    transform.columns[14] = static_cast<float>(-centimetres / 100);
    return transform;
}

}  // namespace

SimulatedDevice::SimulatedDevice(const std::filesystem::path& dataDirectory,
                                 const std::filesystem::path& collectorDirectory) {
    namespace testing = tarvex::testing;
    auto platform = Platform::makeLinux({.dataDirectory = dataDirectory,
                                         .bundleIdentifier = "org.tarvex.SimulatedStudy",
                                         .applicationName = "Simulated Study",
                                         .cameraUsageDescription = "A simulated camera measures a simulated face."});
    clock_ = add(*platform, &Platform::setClock, std::make_unique<testing::ManualClock>());
    timers_ = add(*platform, &Platform::setTimerScheduler, std::make_unique<testing::ManualTimerScheduler>());
    queues_ = add(*platform, &Platform::setDispatchQueues, std::make_unique<testing::ManualDispatchQueues>());
    sensors_ = add(*platform, &Platform::setHidEventSystem, std::make_unique<testing::ScriptedHidEventSystem>());
    faces_ = add(*platform, &Platform::setFaceTracking, std::make_unique<testing::ScriptedFaceTracking>());
    permission_ =
        add(*platform, &Platform::setCaptureDevice, std::make_unique<testing::ScriptedCaptureDevice>(std::deque{true}));
    const std::uint16_t port = portIn(collectorDirectory / "port");
    platform->setUrlSession(testing::makeLoopbackUrlSession(port, contents(collectorDirectory / "certificate.pem")));
    if (!Platform::install(std::move(platform)))
        throw std::runtime_error("Something used the library before its platform was installed.");
}

void SimulatedDevice::allowCamera() {
    permission_->answerNext();
}

void SimulatedDevice::setClock(double seconds) {
    clock_->set(seconds);
}

void SimulatedDevice::show(const Light& light) {
    const auto& [red, green, blue, clear] = light.channels;
    sensors_->emit(light.lux, red, green, blue, clear);
}

void SimulatedDevice::pass(double seconds) {
    timers_->advance(seconds);
    queues_->runMain();
}

bool SimulatedDevice::isMeasuring() const {
    return measuringView() != nullptr;
}

void SimulatedDevice::show(const Eyes& eyes) {
    const auto view = measuringView();
    if (!view) return;
    // The left eye of the format is the right one of the face.
    const Anchor face{.transform = Transform::identity(),
                      .face = Anchor::Face{.leftEyeTransform = straightAhead(eyes.right),
                                           .rightEyeTransform = straightAhead(eyes.left)}};
    if (const auto node = view->addAnchor(face)) view->updateAnchor(*node, face);
}

void SimulatedDevice::endMeasurement() {
    queues_->advance(std::chrono::seconds(3));
    queues_->runMain();
}

std::shared_ptr<tarvex::testing::ScriptedSceneView> SimulatedDevice::measuringView() const {
    if (faces_->views().empty()) return nullptr;
    auto view = faces_->views().back().lock();
    return view && view->isRunning() ? view : nullptr;
}

}  // namespace simulated_study
