// Prints the bundle identifier and the data directory of a host with this executable's name and place.
// usage: bundle_probe [BUNDLE-DIRECTORY|-] [IDENTIFIER-IN-CODE]

#include <iostream>

#include "platform/linux/data_directory.h"
#include "platform/plist/plist_bundles.h"

int main(int count, char** arguments) {
    using namespace tarvex::platform;
    // "-" for none
    const auto argument = [&](int place) {
        return place < count && arguments[place] != std::string("-") ? std::optional<std::string>(arguments[place])
                                                                     : std::nullopt;
    };
    const auto identifier = argument(2);
    const PlistBundles bundles(
        argument(1), identifier ? PropertyList::Entries{{"CFBundleIdentifier", identifier}} : PropertyList::Entries{});
    DataDirectory directory(std::nullopt, bundles, identifier);
    std::cout << bundles.mainBundle().bundleIdentifier().value_or("none") << ' ' << directory.path().filename().native()
              << '\n';
}
