// A stranger's host with a camera: whether the installed component finds its networks.
// usage: camera_consumer PICTURE

#include <tarvex/camera.h>
#include <tarvex/client.h>
#include <tarvex/platform/platform.h>

#include <iostream>
#include <utility>

int main(int argc, char** argv) {
    using tarvex::platform::Platform;
    if (argc != 2) return 2;
    auto platform = Platform::makeLinux();
    tarvex::camera::addTo(*platform, {.source = tarvex::camera::Pictures{.paths = {argv[1]}}});
    const bool installed = Platform::install(std::move(platform));
    if (installed && Platform::current().faceTracking().isSupported()) return 0;
    std::cerr << "failed: the installed library tracks faces\n";
    return 1;
}
