#include "platform/linux/data_directory.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/linux/data_directory_record.h"
#include "platform/linux/safe_file_name.h"
#include "platform/shared/absolute_path.h"
#include "platform/shared/executable.h"
#include "platform/shared/private_directory.h"

namespace tarvex::platform {
namespace {

std::optional<std::filesystem::path> absolutePathInEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || value[0] != '/') return std::nullopt;
    return value;
}

std::filesystem::path homeOfUser() {
    std::array<char, 16'384> text{};
    passwd entry{};
    passwd* found = nullptr;
    const int failure = ::getpwuid_r(::geteuid(), &entry, text.data(), text.size(), &found);
    return failure == 0 && found != nullptr ? std::filesystem::path(found->pw_dir) : "/";
}

std::filesystem::path dataHome() {
    if (const auto chosen = absolutePathInEnvironment("XDG_DATA_HOME")) return *chosen;
    const auto home = absolutePathInEnvironment("HOME");
    return (home ? *home : homeOfUser()) / ".local" / "share";
}

// Executables of one name in different places are different hosts, and so are those that one interpreter runs, each
// with a bundle of its own.
std::string recordName(const std::filesystem::path& executable,
                       const std::optional<std::filesystem::path>& propertyList) {
    const auto ownDirectories = bundleDirectoriesOf(executable);
    if (!propertyList || std::ranges::count(ownDirectories, propertyList->parent_path()) != 0)
        return safeFileName(executable.native());
    return safeFileName(executable.native() + ":" + propertyList->native());
}

// A chosen directory with content had its permissions set by the host, for reasons of its own.
bool isEmpty(const std::filesystem::path& directory) {
    std::error_code failure;
    return std::filesystem::is_empty(directory, failure);
}

}  // namespace

DataDirectory::DataDirectory(std::optional<std::filesystem::path> chosen, const Bundles& bundles) : bundles_(bundles) {
    if (chosen) chosen_ = absolutePath(*std::move(chosen));
}

const std::filesystem::path& DataDirectory::path() {
    std::call_once(resolved_, [this] { path_ = resolve(); });
    createPrivateDirectory(path_);
    if (!chosen_ || isEmpty(path_)) makeDirectoryPrivate(path_);
    return path_;
}

std::filesystem::path DataDirectory::resolve() const {
    if (chosen_) return *chosen_;
    const auto home = dataHome();
    return home / hostName(home);
}

std::string DataDirectory::hostName(const std::filesystem::path& dataHome) const {
    const auto executable = executablePath();
    const std::string executableName = safeFileName(executable.filename().native());
    const auto file = bundles_.mainBundle().pathForResource("Info", "plist");
    const auto list = file ? bundles_.dictionaryWithContentsOfFile(*file) : nullptr;
    const DataDirectoryRecord record(dataHome / "tarvex" / "hosts" / recordName(executable, file));
    std::string lastName = record.name().value_or(executableName);
    if (file && !list) return lastName;

    const auto identifier = list ? list->stringForKey("CFBundleIdentifier") : std::nullopt;
    const std::string name = identifier && !identifier->empty() ? safeFileName(*identifier) : executableName;
    if (name != lastName) record.setName(name);
    return name;
}

}  // namespace tarvex::platform
