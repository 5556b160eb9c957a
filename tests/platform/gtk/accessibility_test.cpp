// The consent screen as a screen reader meets it, over the accessibility bus.

#include "consent_window.h"
#include "prelude.h"
#include "session_bus.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;
using ::testing::ElementsAre;

std::vector<std::string> spoken(const std::string& tree) {
    std::vector<std::string> lines;
    std::istringstream input(tree);
    for (std::string line; std::getline(input, line);) {
        line.erase(0, line.find_first_not_of(' '));
        if (line.starts_with("push button: ") || line.starts_with("label: ") || line.starts_with("heading: "))
            lines.push_back(line);
    }
    return lines;
}

TEST(Accessibility, AScreenReaderMeetsTheElementsInReadingOrderUnderTheirNames) {
    g_set_prgname("accessibility_test");
    const SessionBus bus("/usr/share/dbus-1/services");  // which starts the accessibility bus on demand
    ::setenv("GTK_A11Y", "atspi", 1);
    const VirtualScreen screen;
    TestPlatform platform;
    const ConsentWindow window(gtk::widget(Client::shared().informationView(
        "Light Study", "Why we ask.", {DataReader::distance(5), DataReader::ambientLight(5)},
        Url::parse("https://example.org/"), [](bool) {})));
    // The toolkit tells the bus of its elements in its own time.
    std::string tree;
    runUntil([&] {
        tree = VirtualScreen::run({TARVEX_SCREEN_READER, "accessibility_test"});
        return tree.contains("I consent");
    });
    EXPECT_THAT(
        spoken(tree),
        ElementsAre("push button: Cancel", "label: Cancel", "heading: Research Sensor & Usage Data Request",
                    "label: \"Light Study\" would like to collect and share Sensor & Usage Data from your device.",
                    "label: Why we ask.", "push button: Learn more...", "label: Learn more...", "label: Requested Data",
                    "label: Distance", "label: Ambient Light", "push button: I consent", "label: I consent"))
        << tree;
}

}  // namespace
}  // namespace tarvex
