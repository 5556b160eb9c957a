// The study application as a process of its own, driven like a person does it, sharing with a backend in this one.

#include "prelude.h"
#include "recording_backend.h"
#include "screen.h"
#include "tarvex/data_entry.h"
#include "tarvex/platform/platform.h"

namespace tarvex {
namespace {

using namespace test;

/// The study on its screen, and what it stores in `data`.
class Study {
public:
    explicit Study(std::string data) : data_(std::move(data)) {
        const bool shown = runUntil([&] {
            std::istringstream(VirtualScreen::run({"xdotool", "search", "--name", "Light Study"})) >> window_;
            return !window_.empty();
        });
        if (!shown) throw std::runtime_error("the study does not show its window");
        runFor(1000ms);
    }

    void point(const char* x, const char* y) const {
        VirtualScreen::run(
            {"xdotool", "windowactivate", window_, "mousemove", "--window", window_, x, y, "click", "1"});
    }
    static void press(const std::vector<std::string>& keys) {
        for (const std::string& key : keys) {
            VirtualScreen::run({"xdotool", "key", key});
            runFor(100ms);
        }
    }
    void apply(const std::string& command) const {
        VirtualScreen::run({"xdotool", command, window_});
        runFor(500ms);
    }
    void savePicture(const std::string& name) const {
        std::filesystem::create_directories(TARVEX_TEST_PICTURES);
        VirtualScreen::run({"import", "-window", window_, "-strip", TARVEX_TEST_PICTURES "/" + name + ".png"});
    }

    std::int64_t records() const {
        const auto platform = platform::Platform::makeLinux({.dataDirectory = data_});
        const auto store = platform->objectStore().makeContainer("TrackingDataContainer");
        if (!store->loadPersistentStores()) throw std::runtime_error("the study's store cannot be opened");
        return store->viewContext().count(DataEntry::fetchRequest()).value();
    }

    /// To the measuring of distances or of light.
    bool hasConsent() const {
        const auto platform = platform::Platform::makeLinux({.dataDirectory = data_});
        platform::UserDefaults& defaults = platform->userDefaults();
        return defaults.boolForKey("hasConsentedToTrackDistance") ||
               defaults.boolForKey("hasConsentedToTrackAmbientLight");
    }

private:
    std::string data_;
    std::string window_;
};

// GLib keeps its first table of quarks when more are needed than that holds, and GTK and GStreamer in one process need
// more: the address sanitizer takes it for a leak.
#ifdef __SANITIZE_ADDRESS__
constexpr bool measuresDistances = false;
#else
constexpr bool measuresDistances = true;
#endif

std::chrono::seconds measuringTime() {
    const char* seconds = std::getenv("TARVEX_STUDY_SECONDS");
    return seconds == nullptr ? 5s : std::chrono::seconds(std::stoi(seconds));
}

TEST(GtkHost, AsksMeasuresSharesDeletesAndUploadsWhenItIsMinimisedOrClosed) {
    const VirtualScreen screen;
    const TemporaryDirectory directory;
    const std::string backend = directory.path() / "backend";
    const std::string data = directory.path() / "data";
    const auto received = [&](int number) {
        return contentsOf(backend + "/document-" + std::to_string(number) + ".json");
    };
    const RecordingBackend server({.directory = backend, .host = TARVEX_BACKEND_HOST}, [](const auto&) {});
    const RunningProgram host({TARVEX_GTK_HOST, "--data", data, "--collector", backend, "--recording", TARVEX_RECORDING,
                               "--pictures", measuresDistances ? TARVEX_PHOTOGRAPHS : ""});
    const Study study(data);
    study.savePicture("consent");
    study.point("200", "720");  // I consent
    runFor(measuringTime());
    study.savePicture("study");
    EXPECT_EQ(received(1), "") << "nothing is shared while it is in front";
    const std::int64_t measured = study.records();
    EXPECT_GE(measured, 3);

    study.press({"space"});  // Share now
    EXPECT_TRUE(runUntil([&] { return received(1).ends_with('}'); }));
    EXPECT_THAT(received(1), HasSubstr(R"("type":"ambient_light")"));
    EXPECT_EQ(received(1).contains(R"("type":"distance")"), measuresDistances);
    EXPECT_TRUE(runUntil([&] { return study.records() < measured; })) << "what was shared is deleted";
    runFor(2500ms);

    study.press({"Tab", "Tab", "space"});  // Stop
    runFor(4000ms);                        // a measurement that has begun is still stored
    const std::int64_t stopped = study.records();
    EXPECT_GT(stopped, 0);
    runFor(1500ms);
    EXPECT_EQ(study.records(), stopped);
    study.press({"shift+Tab", "space"});  // Delete everything
    runFor(1000ms);
    EXPECT_EQ(study.records(), stopped) << "it asks first";
    VirtualScreen::run({"import", "-window", "root", "-strip", TARVEX_TEST_PICTURES "/delete.png"});
    study.press({"Tab", "space"});  // Delete
    EXPECT_EQ(study.records(), 0);
    study.press({"Tab", "space"});  // Start
    EXPECT_TRUE(runUntil([&] { return study.records() > 0; }));

    study.press({"Tab", "space"});  // Withdraw consent
    runFor(1000ms);
    VirtualScreen::run({"import", "-window", "root", "-strip", TARVEX_TEST_PICTURES "/withdraw.png"});
    EXPECT_TRUE(study.hasConsent()) << "it asks first";
    study.press({"Tab", "Tab", "space"});  // Withdraw and delete
    EXPECT_TRUE(runUntil([&] { return !study.hasConsent() && study.records() == 0; }));
    runFor(5000ms);
    EXPECT_EQ(study.records(), 0) << "nor does a measurement that had begun leave anything";
    study.savePicture("withdrawn");
    study.press({"space"});  // Ask again
    runFor(500ms);
    study.point("200", "720");  // I consent
    EXPECT_TRUE(runUntil([&] { return study.hasConsent() && study.records() > 0; }));

    study.apply("windowminimize");
    EXPECT_TRUE(runUntil([&] { return received(2).ends_with('}'); }));
    study.apply("windowactivate");
    EXPECT_TRUE(runUntil([&] { return study.records() > 3; }));
    study.press({"alt+F4"});
    EXPECT_TRUE(runUntil([&] { return host.hasEnded(); }));
    EXPECT_TRUE(host.hasSucceeded());
    EXPECT_LE(study.records(), 1) << "it waited for the upload; a measurement under way may follow";
    EXPECT_THAT(received(3), EndsWith("}"));
}

}  // namespace
}  // namespace tarvex
