#include "store/preview.h"

#include <string_view>

#include "client/sender.h"
#include "platform/sqlite/sqlite_schema.h"
#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"

namespace tarvex::tool {
namespace {

using Failure = std::unexpected<std::string>;

constexpr std::string_view identifierKey = "userID";

/// Without its object model beside it, the library ends the process.
bool hasObjectModel(platform::Platform& platform) {
    const auto* resources = platform.bundles().bundleWithIdentifier(platform::libraryBundleIdentifier);
    const auto path = resources->pathForResource("TrackingDataContainer", "momd");
    return path && platform.objectStore().fitsModel(*path);
}

}  // namespace

std::expected<Preview, std::string> preview(const Snapshot& snapshot, const Host& host) {
    if (const auto store = snapshot.openStore(); !store) return Failure(store.error());
    const auto platform = platform::Platform::makeLinux({.dataDirectory = snapshot.directory(),
                                                         .bundleDirectory = host.bundle.value_or(snapshot.directory()),
                                                         .bundleIdentifier = host.identifier});
    if (!hasObjectModel(*platform))
        return Failure("This program does not find share/tarvex/TrackingDataContainer.momd of its own version.");
    const auto identifier = platform->userDefaults().durableStringForKey(identifierKey);
    if (!identifier)
        return Failure("Nothing is sent while the user identifier cannot be read: " +
                       snapshot.sentence({.description = identifier.error(), .userInfo = {}}));
    // In the copy: the library would make one.
    if (!*identifier) platform->userDefaults().setValueForKey("", identifierKey);
    PersistenceController controller(*platform);
    const auto document = controller.loadTrackingData([&] { return sender(*platform); });
    if (!document)
        return Failure("Nothing is sent while the records in " + snapshot.store().string() +
                       " cannot be read (see tarvex verify).");
    return Preview{.document = std::string(document->view()), .hasUserIdentifier = identifier->has_value()};
}

}  // namespace tarvex::tool
