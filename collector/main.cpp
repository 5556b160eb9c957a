// tarvex-collector: receives what hosts send, keeps it, and shows it to the researcher.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "collector/commands/directory.h"
#include "collector/commands/export_files.h"
#include "collector/configuration/configuration.h"
#include "collector/service/service.h"
#include "collector/status/status.h"

namespace tarvex::collector {
namespace {

struct Arguments {
    std::filesystem::path configuration;
    bool printsConfiguration = false;
    std::filesystem::path announcement;
    bool asJson = false;
    bool renewsToken = false;
    std::string participant;
    std::filesystem::path directory;
    std::set<std::string> kinds;
    std::string format = "csv";
    std::optional<double> from;
    std::optional<double> until;
    bool includesPen = false;
};

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void note(Store& store, const std::string& what) {
    store.note({.time = now(), .what = what});
}

int exportCommand(const Configuration& configuration, const Arguments& arguments) {
    static const std::map<std::string, Kind> kindOfName{
        {"light", Kind::light}, {"distance", Kind::distance}, {"other", Kind::other}};
    std::set<Kind> kinds;
    for (const auto& [name, kind] : kindOfName)
        if (arguments.kinds.empty() || arguments.kinds.contains(name)) kinds.insert(kind);
    Selection selection{.time = {}, .includesPen = arguments.includesPen};
    if (!arguments.participant.empty()) selection.participant = arguments.participant;
    if (arguments.from) selection.time.from = *arguments.from;
    if (arguments.until) selection.time.until = *arguments.until;
    const Format format = arguments.format == "csv" ? Format::csv : Format::jsonLines;

    const auto store = openConfiguredStore(configuration);
    // A name would stay here when its participant is deleted.
    note(*store, arguments.participant.empty() ? "exported all on the command line"
                                               : "exported a participant on the command line");
    if (!arguments.directory.empty()) {
        exportFiles(*store, kinds, format, selection, arguments.directory);
        std::cout << "Written to " << arguments.directory.string() << "\n";
        return 0;
    }
    if (kinds.size() != 1) {
        std::cerr << "Several kinds go into a directory (--directory), one kind to standard output (--type).\n";
        return 2;
    }
    exportSamples(*store, *kinds.begin(), format, selection, [](std::string_view piece) {
        if (std::fwrite(piece.data(), 1, piece.size(), stdout) != piece.size())
            throw std::runtime_error("standard output takes no more");
    });
    return std::fflush(stdout) == 0 ? 0 : 1;
}

int deleteCommand(const Configuration& configuration, const Arguments& arguments) {
    const auto store = openConfiguredStore(configuration);
    const bool wasThere = store->erase(arguments.participant);
    note(*store, "deleted a participant on the command line");
    std::cout << (wasThere ? "Deleted, for good.\n" : "Nothing had come from it.\n")
              << "What comes from it later is acknowledged and dropped.\n";
    return 0;
}

int enrolCommand(const Configuration& configuration, const Arguments& arguments) {
    const auto store = openConfiguredStore(configuration);
    if (!store->enrol(arguments.participant)) {
        std::cerr << "Nothing has come from this participant. Whoever is to be enrolled before is named in the"
                     " configuration.\n";
        return 1;
    }
    note(*store, "enrolled a participant on the command line");
    return 0;
}

int statusCommand(const Configuration& configuration, const Arguments& arguments) {
    const Status status = statusOf(*openConfiguredStore(configuration));
    std::cout << (arguments.asJson ? jsonOf(status) : textOf(status));
    return 0;
}

int tokenCommand(const Configuration& configuration, const Arguments& arguments) {
    const std::string token = pageToken(configuration, arguments.renewsToken);
    std::cout << pageAddress(configuration, configuration.page.port, token) << "\n";
    return 0;
}

using Command = int (*)(const Configuration&, const Arguments&);

std::map<CLI::App*, Command> addCommands(CLI::App& app, Arguments& arguments) {
    auto* serving =
        app.add_subcommand("serve", "Receives documents and shows the researcher's page, until it is ended");
    serving
        ->add_option("--announce", arguments.announcement,
                     "While it serves, says there where: port, certificate.pem, page")
        ->option_text("DIRECTORY");
    auto* exporting = app.add_subcommand("export", "Writes samples as CSV or JSON Lines");
    exporting
        ->add_option("--directory", arguments.directory, "A file for each type, the data dictionary and check sums")
        ->option_text("DIRECTORY");
    exporting->add_option("--participant", arguments.participant, "Of one participant (all)")
        ->option_text("IDENTIFIER");
    exporting->add_option("--type", arguments.kinds, "light, distance or other (all)")
        ->option_text("TYPE")
        ->check(CLI::IsMember({"light", "distance", "other"}));
    exporting->add_option("--format", arguments.format, "csv or jsonl (csv)")
        ->option_text("FORMAT")
        ->check(CLI::IsMember({"csv", "jsonl"}));
    exporting->add_option("--from", arguments.from, "From this time on, in seconds since 1970")->option_text("SECONDS");
    exporting->add_option("--until", arguments.until, "Before this time")->option_text("SECONDS");
    exporting->add_flag("--pen", arguments.includesPen, "Also of participants who are not enrolled");
    auto* deleting = app.add_subcommand("delete", "Deletes everything of a participant, for good");
    auto* enrolling = app.add_subcommand("enrol", "Takes a participant out of the pen");
    for (CLI::App* command : {deleting, enrolling})
        command->add_option("--participant", arguments.participant, "The participant (required)")
            ->option_text("IDENTIFIER")
            ->required();
    auto* showing = app.add_subcommand("status", "Shows who sends, and what is wrong");
    showing->add_flag("--json", arguments.asJson, "As JSON");
    auto* address = app.add_subcommand("token", "Prints the address of the researcher's page, with its token");
    address->add_flag(
        "--new", arguments.renewsToken,
        "Makes a new token; a collector that serves takes it at SIGHUP, and the old one no longer opens the page");
    return {{exporting, exportCommand}, {deleting, deleteCommand}, {enrolling, enrolCommand},
            {showing, statusCommand},   {address, tokenCommand},   {serving, nullptr}};
}

}  // namespace
}  // namespace tarvex::collector

int main(int argc, char** argv) {
    using namespace tarvex::collector;
    Arguments arguments;
    CLI::App app("Receives what hosts send, keeps it, and shows it to the researcher.");
    app.add_option("--config", arguments.configuration, "Configuration file (none: see --print-config)")
        ->option_text("FILE");
    app.add_flag("--print-config", arguments.printsConfiguration, "Prints a configuration file with every key");
    app.require_subcommand(0, 1);
    app.fallthrough();
    const auto commands = addCommands(app, arguments);
    try {
        app.parse(argc, argv);
        if (arguments.printsConfiguration) {
            std::cout << defaultConfiguration();
            return 0;
        }
        if (app.get_subcommands().empty()) throw CLI::CallForHelp();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        const Configuration configuration = readConfiguration(arguments.configuration);
        const Command command = commands.at(app.get_subcommands().front());
        return command != nullptr ? command(configuration, arguments) : serve(configuration, arguments.announcement);
    } catch (const ConfigurationError& error) {
        std::cerr << "tarvex-collector: " << error.what() << "\n";
        return 2;  // another try would not help
    } catch (const std::exception& error) {
        std::cerr << "tarvex-collector: " << error.what() << "\n";
        return 1;
    }
}
