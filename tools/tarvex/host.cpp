#include "host.h"

#include "platform/linux/data_directory.h"
#include "platform/plist/plist_bundles.h"
#include "platform/shared/own_file.h"

namespace tarvex::tool {

std::expected<std::optional<std::string>, std::string> identifierOf(const Host& host) {
    if (!host.bundle) return host.identifier;
    const platform::DirectoryBundle bundle(platform::absolutePath(*host.bundle));
    const std::string file = bundle.informationFile().string();
    if (!bundle.pathForResource("Info", "plist")) return std::unexpected("There is no " + file + ".");
    if (!bundle.informationDictionary())
        return std::unexpected(file + " cannot be read, or is no property list with a dictionary in UTF-8.");
    auto identifier = bundle.bundleIdentifier();
    return identifier && !identifier->empty() ? identifier : host.identifier;
}

std::expected<std::filesystem::path, std::string> dataDirectoryOf(const Host& host) {
    if (host.data) return platform::absolutePath(*host.data);
    const auto identifier = identifierOf(host);
    if (!identifier) return std::unexpected(identifier.error());
    const std::string name = identifier->value_or("");
    if (name.empty())
        return std::unexpected(
            "The host has no CFBundleIdentifier: its data lies where the name of its executable says, which "
            "--identifier takes as well.");
    return platform::dataHome() / platform::safeFileName(name);
}

}  // namespace tarvex::tool
