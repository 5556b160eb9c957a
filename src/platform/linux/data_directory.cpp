#include "platform/linux/data_directory.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/glib/sha256.h"
#include "platform/shared/own_file.h"
#include "platform/shared/private_files.h"
#include "tarvex/platform/diagnostics.h"

namespace tarvex::platform {
namespace {

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_';
}

std::string percentEncoded(char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'%', digits[byte >> 4U], digits[byte & 0xfU]};
}

/// The name of the directory that a host used last, kept for starts at which the host's property list cannot be read:
/// a symbolic link to that directory, two levels below the directory that holds both.
class Record {
public:
    explicit Record(std::filesystem::path link) : link_(std::move(link)) {}

    std::optional<std::string> name() const {
        std::error_code failure;
        const auto target = std::filesystem::read_symlink(link_, failure);
        std::string name = target.filename();
        if (failure || name.empty() || name.starts_with('.') || target != targetFor(name)) return std::nullopt;
        return name;
    }

    /// Replaces the record at once or, when it cannot be written, not at all.
    void setName(const std::string& name) const {
        createPrivateDirectory(link_.parent_path());
        auto fresh = link_;
        fresh += "~" + std::to_string(::getpid());
        std::error_code failure;
        std::filesystem::remove(fresh, failure);
        std::filesystem::create_symlink(targetFor(name), fresh, failure);
        if (!failure) std::filesystem::rename(fresh, link_, failure);
        if (failure) std::filesystem::remove(fresh, failure);
    }

private:
    static std::filesystem::path targetFor(const std::string& name) { return std::filesystem::path("../..") / name; }

    std::filesystem::path link_;
};

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

// Executables of one name in different places are different hosts, and so are those that one interpreter runs, each
// with a bundle or an identifier of its own.
std::string recordName(const std::filesystem::path& executable,
                       const std::optional<std::filesystem::path>& propertyList,
                       const std::optional<std::string>& identifier) {
    std::string name = executable.native();
    const auto ownDirectories = bundleDirectoriesOf(executable);
    if (propertyList && std::ranges::count(ownDirectories, propertyList->parent_path()) == 0)
        name += ":" + propertyList->native();
    if (identifier) name += ":" + *identifier;
    return safeFileName(name);
}

/// True for the name of an executable that runs programs of others, with or without its version ("python3.11").
bool isInterpreter(std::string_view executableName) {
    constexpr std::array<std::string_view, 21> interpreters{
        "bun",  "deno",       "dotnet",     "electron", "gjs", "gjs-console", "guile",  "java", "julia", "lua", "mono",
        "node", "octave-cli", "octave-gui", "perl",     "php", "pypy",        "python", "R",    "ruby",  "wish"};
    const auto withoutVersion = executableName.substr(0, executableName.find_first_of("0123456789."));
    return std::ranges::find(interpreters, withoutVersion) != interpreters.end();
}

}  // namespace

std::filesystem::path dataHome() {
    if (const auto chosen = absolutePathInEnvironment("XDG_DATA_HOME")) return *chosen;
    const auto home = absolutePathInEnvironment("HOME");
    return (home ? *home : homeOfUser()) / ".local" / "share";
}

std::string safeFileName(std::string_view text) {
    constexpr std::size_t maximumLength = 143;
    constexpr std::size_t digestLength = 32;
    std::string name;
    for (const char c : text) {
        if (isPlain(c) && (c != '.' || !name.empty()))
            name.push_back(c);
        else
            name += percentEncoded(c);
    }
    if (name.size() <= maximumLength) return name;
    const std::string end = "~" + sha256Of(text).substr(0, digestLength);
    return name.substr(0, maximumLength - end.size()) + end;
}

DataDirectory::DataDirectory(std::optional<std::filesystem::path> chosen, const Bundles& bundles,
                             std::optional<std::string> identifier)
    : bundles_(bundles), identifier_(std::move(identifier)) {
    if (chosen) chosen_ = absolutePath(*std::move(chosen));
}

const std::filesystem::path& DataDirectory::path() {
    std::call_once(resolved_, [this] {
        path_ = resolve();
        logDebug("the data directory is " + path_.native());
    });
    createPrivateDirectory(path_);
    // A chosen directory with content has the permissions that the host gave it.
    std::error_code failure;
    if (std::filesystem::is_directory(path_, failure) && (!chosen_ || std::filesystem::is_empty(path_, failure)))
        makePrivate(path_);
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
    const bool isNamedInCode = identifier_ && !identifier_->empty();
    const Record record(dataHome / "tarvex" / "hosts" / recordName(executable, file, identifier_));
    std::string name = record.name().value_or(isNamedInCode ? safeFileName(*identifier_) : executableName);
    if (!file || list) {
        const auto identifier = list ? list->stringForKey("CFBundleIdentifier") : std::nullopt;
        std::string current = identifier && !identifier->empty() ? safeFileName(*identifier) : executableName;
        if (current != name) record.setName(current);
        name = std::move(current);
    }
    if (name == executableName && isInterpreter(executableName))
        logWarning(
            "this host has no name of its own: it shares consent, identifier and samples with every other one that " +
            executableName + " runs; set LinuxOptions::bundleIdentifier, or CFBundleIdentifier in an Info.plist");
    return name;
}

}  // namespace tarvex::platform
