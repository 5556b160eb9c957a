// Prints the bundle identifier and the data directory of a host with this executable's name and place.

#include <iostream>

#include "platform/linux/data_directory.h"
#include "platform/plist/plist_bundles.h"

int main(int, char** arguments) {
    using namespace tarvex::platform;
    const PlistBundles bundles(arguments[1] != nullptr ? std::optional<std::filesystem::path>(arguments[1])
                                                       : std::nullopt);
    DataDirectory directory(std::nullopt, bundles);
    std::cout << bundles.mainBundle().bundleIdentifier().value_or("none") << ' ' << directory.path().filename().native()
              << '\n';
}
