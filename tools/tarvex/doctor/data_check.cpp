#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>

#include "consent/consent.h"
#include "counted.h"
#include "doctor/checks.h"
#include "platform/plist/plist_bundles.h"
#include "platform/shared/own_file.h"
#include "platform/sqlite/sqlite_user_defaults.h"
#include "store/csv_export.h"
#include "store/stored_files.h"
#include "store/verification.h"

namespace tarvex::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t littleRoom = 64ULL << 20U;

std::string octal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & 07777U));
    return text.data();
}

Finding permissionsOf(const fs::path& path, mode_t wanted) {
    const std::string what = "permissions of " + path.string();
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0)
        return bad(what, std::generic_category().message(errno), "run this as the host's user, or with sudo");
    const auto mode = static_cast<mode_t>(status.st_mode & 07777U);
    const std::string owner = std::to_string(status.st_uid);
    if (status.st_uid != ::geteuid())
        return bad(
            what, "it belongs to user " + owner + ", and this is user " + std::to_string(::geteuid()),
            "run this as the host's user; if the host runs as this one: sudo chown \"$USER\" '" + path.string() + "'");
    if ((mode & wanted) != wanted)
        return bad(what, "its owner may not use it: " + octal(mode),
                   "chmod " + octal(wanted) + " '" + path.string() + "'");
    if ((mode & (S_IRWXG | S_IRWXO)) != 0)
        return bad(what, "others may use it: " + octal(mode), "chmod " + octal(wanted) + " '" + path.string() + "'");
    return good(what, octal(mode));
}

Findings permissionsIn(const fs::path& directory) {
    Findings findings{permissionsOf(directory, S_IRWXU)};
    for (const char* name : {storeName, defaultsName}) {
        for (const char* companion : {"", "-wal", "-shm"}) {
            const fs::path file = directory / (std::string(name) + companion);
            std::error_code failure;
            if (!fs::exists(file, failure)) continue;
            auto finding = permissionsOf(file, S_IRUSR | S_IWUSR);
            // Of the files, only what is wrong is worth a line.
            if (finding.state != Finding::State::good) findings.push_back(std::move(finding));
        }
    }
    return findings;
}

Finding roomIn(const fs::path& directory) {
    constexpr const char* what = "free space";
    struct statvfs status{};
    if (::statvfs(directory.c_str(), &status) != 0)
        return bad(what, std::generic_category().message(errno), "see: df -h '" + directory.string() + "'");
    const std::uint64_t bytes = std::uint64_t{status.f_bavail} * status.f_frsize;
    const std::string detail = std::to_string(bytes >> 20U) + " MiB";
    if (bytes < littleRoom)
        return bad(what, detail + ": samples stay in memory once the disk is full",
                   "make room: df -h '" + directory.string() + "'");
    return good(what, detail);
}

Finding storeFinding(const Snapshot& snapshot) {
    constexpr const char* what = "store";
    const std::string recovery = "with the host stopped: tarvex recover --data '" +
                                 snapshot.store().parent_path().string() + "' --output NEW_FILE";
    const auto verification = verify(snapshot);
    if (!verification) return bad(what, verification.error(), recovery);
    const auto& [records, unreadable, first, last, problems] = *verification;
    if (!problems.empty()) return bad(what, problems.front(), recovery);
    if (records == 0)
        return note(what, "it is whole and holds nothing: no sample was taken since the last upload",
                    "look here again while the host measures");
    return good(what, "it is whole and holds " + counted(records, "sample") + ", from " + utcText(first.value_or(0)) +
                          " to " + utcText(last.value_or(0)) +
                          (records == 1 ? ", which waits for an upload" : ", which wait for an upload"));
}

Findings consentFindings(const Snapshot& snapshot, const Examination& examination) {
    const platform::SqliteUserDefaults defaults([&] { return snapshot.directory(); });
    Findings findings;
    for (const auto& [kind, measures, name] :
         {std::tuple(DataReader::Kind::ambientLight, examination.light, "light"),
          std::tuple(DataReader::Kind::distance, examination.distance, "distance")}) {
        if (!measures) continue;
        const std::string what = std::string("consent to ") + name;
        if (hasConsented(defaults, kind))
            findings.push_back(good(what, "it is given"));
        else
            findings.push_back(bad(what, "it is not given: nothing of it is measured",
                                   "start the host, whose participant decides on its consent screen"));
    }
    const auto identifier = defaults.durableStringForKey("userID");
    if (!identifier)
        findings.push_back(bad("user identifier", "it cannot be read, and nothing is sent",
                               "with the host stopped, move UserDefaults.sqlite and its -wal and -shm away together: "
                               "consent is asked for again, and the installation counts as a new one"));
    else if (!*identifier)
        findings.push_back(note("user identifier", "there is none yet: the host makes one when it starts"));
    else
        findings.push_back(good("user identifier", "it is stored"));
    return findings;
}

}  // namespace

Findings checkBundle(const Host& host, bool measuresDistance) {
    if (!host.bundle) return {};
    const std::string file = (platform::absolutePath(*host.bundle) / "Info.plist").string();
    const std::string edit = "mend it: plistutil -i '" + file + "' shows what is wrong";
    const auto identifier = identifierOf(host);
    if (!identifier) return {bad("property list", identifier.error(), edit)};
    Findings findings{good("property list", file)};
    if (const auto& name = *identifier)
        findings.push_back(good("identifier", *name));
    else
        findings.push_back(
            bad("identifier", "there is no CFBundleIdentifier: the upload says \"unknown\"", "add it to " + file));
    if (!measuresDistance) return findings;
    const platform::DirectoryBundle bundle(platform::absolutePath(*host.bundle));
    if (bundle.informationDictionary()->contains("NSCameraUsageDescription"))
        findings.push_back(good("camera's purpose", "NSCameraUsageDescription is there"));
    else
        findings.push_back(bad("camera's purpose", "there is no NSCameraUsageDescription: distances do not start",
                               "add it to " + file + ", or let the host set LinuxOptions::cameraUsageDescription"));
    return findings;
}

Findings checkData(const Host& host, const Examination& examination) {
    constexpr const char* what = "data directory";
    if (!host.isNamed())
        return {note(what, "no host is named, so that its data was not looked at", "tarvex doctor --identifier ID")};
    const auto directory = dataDirectoryOf(host);
    if (!directory) return {bad(what, directory.error(), "name it: tarvex doctor --data DIRECTORY")};
    std::error_code failure;
    if (!fs::exists(*directory, failure))
        return {bad(what,
                    failure ? directory->string() + ": " + failure.message()
                            : "there is no " + directory->string() + ": the host has never run for this user",
                    "start the host as this user, or name the directory that it uses: tarvex doctor --data DIRECTORY")};
    Findings findings{good(what, directory->string())};
    for (Finding& finding : permissionsIn(*directory))
        findings.push_back(std::move(finding));
    findings.push_back(roomIn(*directory));
    const auto snapshot = Snapshot::take(*directory);
    if (!snapshot) {
        findings.push_back(bad("store", snapshot.error(),
                               "start the host, which makes one where there is none, and run this as its user"));
        return findings;
    }
    findings.push_back(storeFinding(*snapshot));
    for (Finding& finding : consentFindings(*snapshot, examination))
        findings.push_back(std::move(finding));
    return findings;
}

}  // namespace tarvex::tool
