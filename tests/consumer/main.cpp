// A host that knows the installed headers only.
// usage: consumer EMPTY-DIRECTORY

#include <tarvex/client.h>
#include <tarvex/data_reader.h>
#include <tarvex/platform/platform.h>
#include <tarvex/testing/recording_url_session.h>
#include <tarvex/version.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

using tarvex::Client;
using tarvex::DataReader;
using tarvex::TarvexError;
using tarvex::platform::Platform;
using tarvex::testing::RecordingUrlSession;

namespace {

void expect(bool holds, const char* what) {
    if (holds) return;
    std::cerr << "Failed: " << what << '\n';
    std::exit(1);
}

RecordingUrlSession& installPlatform(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory / "sensors/iio:device0");
    std::ofstream(directory / "sensors/iio:device0/in_illuminance_input") << "321\n";
    auto platform = Platform::makeLinux(
        {.dataDirectory = directory / "data", .bundleDirectory = directory, .sensorRoot = directory / "sensors"});
    auto session = std::make_unique<RecordingUrlSession>();
    RecordingUrlSession& recorded = *session;
    platform->setUrlSession(std::move(session));
    expect(Platform::install(std::move(platform)), "a platform can be installed before the first use");
    return recorded;
}

}  // namespace

// The library calls its own function of this name, never this one.
extern "C" void handle_event(void*, void*, void*, void*) {
    std::cerr << "the host received the library's event\n";
    std::abort();
}

int main(int argc, char** argv) {
    expect(argc == 2, "one argument, an empty directory");
    RecordingUrlSession& backend = installPlatform(argv[1]);
    Platform& platform = Platform::current();
    Client& client = Client::shared();

    int failures = 0;
    const auto countFailures = [&failures](Client::Result result, std::optional<DataReader> reader) {
        if (!result && result.error().code() == TarvexError::Code::noConsentToTrack && reader) ++failures;
    };
    client.startTracking({DataReader::ambientLight(1)}, nullptr, countFailures);
    expect(failures == 1, "nothing starts without consent");

    platform.userDefaults().setValueForKey(true, "hasConsentedToTrackAmbientLight");
    client.startTracking({DataReader::ambientLight(1)}, nullptr, countFailures);
    expect(failures == 1, "the reader starts with consent");
    const auto watch = platform.timerScheduler().scheduledTimer(0.05, [&] {
        if (client.trackingDataCount() > 0) platform.mainRunLoop().stop();
    });
    platform.mainRunLoop().run();
    watch->invalidate();
    client.stopTracking();

    platform.notificationCenter().post(tarvex::platform::applicationDidEnterBackground);
    expect(backend.requests().size() == 1, "going to the background uploads");
    expect(backend.requests()[0].body.find(R"("lux":321)") != std::string::npos, "the sensor's value is uploaded");
    backend.respond(0, tarvex::platform::UrlResponse{.statusCode = 200}, std::nullopt);
    expect(client.trackingDataCount() == 0, "what was uploaded is deleted");
    std::cout << "Tarvex " TARVEX_VERSION " works for a host\n";
}
