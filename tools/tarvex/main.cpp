// tarvex: tells a study's operator why a device yields no data, and what lies on it. Changes nothing of a host's data.

#include <glib.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "calibrate/command.h"
#include "counted.h"
#include "doctor/doctor.h"
#include "doctor/report.h"
#include "store/csv_export.h"
#include "store/preview.h"
#include "store/recovery.h"
#include "store/stored_files.h"
#include "store/verification.h"
#include "tarvex/version.h"

namespace tarvex::tool {
namespace {

struct Arguments {
    Host host;
    Examination examination;
    std::set<std::string> measures;
    bool asJson = false;
    bool asCsv = false;
    std::filesystem::path output;
};

int fail(const std::string& sentence) {
    std::fprintf(stderr, "%s\n", sentence.c_str());
    return 1;
}

int print(std::string_view text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return isWritten ? 0 : fail("Standard output takes no more.");
}

/// What `read` makes of a copy of the store, which is gone when this returns.
template <typename Read>
auto readCopy(const Host& host, const Read& read) -> decltype(read(std::declval<const Snapshot&>())) {
    const auto directory = dataDirectoryOf(host);
    if (!directory) return std::unexpected(directory.error());
    const auto snapshot = Snapshot::take(*directory);
    if (!snapshot) return std::unexpected(snapshot.error());
    return read(*snapshot);
}

int doctorCommand(const Arguments& arguments) {
    Examination examination = arguments.examination;
    examination.light = arguments.measures.empty() || arguments.measures.contains("light");
    examination.distance = arguments.measures.empty() || arguments.measures.contains("distance");
    const Findings findings = examine(arguments.host, examination);
    const int printed = print(arguments.asJson ? jsonOf(findings) : textOf(findings));
    return printed == 0 && areAllGood(findings) ? 0 : 1;
}

int previewCommand(const Arguments& arguments) {
    const auto shown =
        readCopy(arguments.host, [&](const Snapshot& snapshot) { return preview(snapshot, arguments.host); });
    if (!shown) return fail(shown.error());
    if (!shown->hasUserIdentifier)
        std::fputs("There is no user identifier yet, so that the document's is empty: the host makes one.\n", stderr);
    if (!arguments.host.bundle && !arguments.host.identifier)
        std::fputs("The host's identifier is not known here: name it with --bundle or --identifier.\n", stderr);
    return print(shown->document + "\n");
}

int exportCommand(const Arguments& arguments) {
    const auto exported = readCopy(arguments.host, exportCsv);
    if (!exported) return fail(exported.error());
    if (exported->left > 0)
        fail(counted(exported->left, "record") + " cannot be read, and " + (exported->left == 1 ? "was" : "were") +
             " left out.");
    return print(exported->text);
}

int verifyCommand(const Arguments& arguments) {
    const auto verification = readCopy(arguments.host, verify);
    if (!verification) return fail(verification.error());
    const auto& [records, unreadable, first, last, problems] = *verification;
    for (const std::string& problem : problems)
        fail(problem);
    std::string text = counted(records - unreadable, "readable record");
    if (first && last) text += ", from " + utcText(*first) + " to " + utcText(*last);
    if (problems.empty()) text += "; the store is whole";
    const int printed = print(text + ".\n");
    return problems.empty() ? printed : 1;
}

int recoverCommand(const Arguments& arguments) {
    const auto directory = dataDirectoryOf(arguments.host);
    if (!directory) return fail(directory.error());
    const auto recovery = recover(*directory, arguments.output);
    if (!recovery) return fail(recovery.error());
    const std::string store = (*directory / storeName).string();
    return print(counted(recovery->records, "record") + (recovery->records == 1 ? " is in " : " are in ") +
                 arguments.output.string() + "; " +
                 (recovery->isWhole ? "none was lost" : "a part of the store could not be read") +
                 ".\nThe store was left as it is. To put the new one in its place, while no host runs:\n" +
                 "    mkdir damaged && mv '" + store + "'* damaged\n" +  // -wal and -shm belong to it
                 "    mv '" + arguments.output.string() + "' '" + store + "'\n");
}

using Command = std::function<int()>;

CLI::App& addCommand(CLI::App& app, const char* name, const char* description) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.failure_message(CLI::FailureMessage::help);
    return command;
}

void addHost(CLI::App& command, Host& host, bool isRequired) {
    command.add_option("--bundle", host.bundle, "Directory of the host's Info.plist")->option_text("DIRECTORY");
    command
        .add_option("--identifier", host.identifier,
                    "The host's identifier, or the name of its executable where it has none")
        ->option_text("ID");
    command.add_option("--data", host.data, "Directory of its data (that which the identifier names)")
        ->option_text("DIRECTORY");
    if (!isRequired) return;
    command.parse_complete_callback([&host] {
        if (!host.isNamed()) throw CLI::RequiredError("One of --bundle, --identifier and --data");
    });
}

std::map<CLI::App*, Command> addCommands(CLI::App& app, Arguments& arguments) {
    std::map<CLI::App*, Command> commands;
    auto& doctor = addCommand(app, "doctor", "Looks at everything that a host needs, and says what to do");
    addHost(doctor, arguments.host, false);
    doctor.add_flag("--json", arguments.asJson, "As JSON");
    doctor.add_option("--measures", arguments.measures, "What the host measures: light, distance (both)")
        ->option_text("KIND")
        ->check(CLI::IsMember({"light", "distance"}));
    doctor.add_option("--sensors", arguments.examination.sensors, "Tree of the light sensors (/sys/bus/iio/devices)")
        ->option_text("DIRECTORY");
    commands[&doctor] = [&] { return doctorCommand(arguments); };

    auto& showing = addCommand(app, "preview", "Prints the document that would be sent now; sends nothing");
    addHost(showing, arguments.host, true);
    commands[&showing] = [&] { return previewCommand(arguments); };

    auto& exporting = addCommand(app, "export", "Writes the stored samples to standard output");
    addHost(exporting, arguments.host, true);
    exporting.add_flag("--csv", arguments.asCsv, "As CSV (required)")->required();
    commands[&exporting] = [&] { return exportCommand(arguments); };

    auto& verifying = addCommand(app, "verify", "Looks whether the store is whole");
    addHost(verifying, arguments.host, true);
    commands[&verifying] = [&] { return verifyCommand(arguments); };

    auto& recovering = addCommand(app, "recover", "Writes what a damaged store still holds into a new one");
    addHost(recovering, arguments.host, true);
    recovering.add_option("--output", arguments.output, "The new store (required)")->option_text("FILE")->required();
    commands[&recovering] = [&] { return recoverCommand(arguments); };

    auto& calibrating = addCommand(app, "calibrate",
                                   "Calibrates a camera: look at it from a known distance and hold still.\n"
                                   "The factor is stored for this user, for the camera and the size of its frames.");
    commands[&calibrating] = camera::addCalibration(calibrating);
    return commands;
}

}  // namespace
}  // namespace tarvex::tool

int main(int argc, char** argv) {
    using namespace tarvex::tool;
    Arguments arguments;
    CLI::App app("Tells why a device yields no data, and what lies on it. Changes nothing of a host's data.");
    app.set_version_flag("--version", TARVEX_HAS_CAMERA ? "tarvex " TARVEX_VERSION
                                                        : "tarvex " TARVEX_VERSION " (built without the camera)");
    app.require_subcommand(1);
    app.failure_message(CLI::FailureMessage::help);
    const auto commands = addCommands(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    // What the library would log of a copy is said in a sentence of this program's.
    g_log_set_handler("Tarvex", G_LOG_LEVEL_MASK, [](const char*, GLogLevelFlags, const char*, void*) {}, nullptr);
    try {
        return commands.at(app.get_subcommands().front())();
    } catch (const std::exception& error) {
        return fail(std::string("This failed: ") + error.what());
    }
}
