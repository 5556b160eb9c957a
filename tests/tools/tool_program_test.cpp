// The program tarvex as a process of its own, on stores that the library itself has made.

#include <linux/capability.h>
#include <sys/prctl.h>

#include "child_process.h"
#include "client/sender.h"
#include "platform/sqlite/sample_store.h"
#include "prelude.h"
#include "storage/persistence_controller.h"
#include "storage/tracking_data.h"
#include "tarvex/data_entry.h"
#include "tool_process.h"

namespace tarvex::tool {
namespace {

namespace fs = std::filesystem;
using test::OtherProgram;

/// The commands of docs/integration.md.
std::string documentedRecovery() {
    const std::string document = contentsOf(TARVEX_SOURCE_DIR "/docs/integration.md");
    const auto begin = document.find("\ntarvex recover --data");
    return document.substr(begin, document.find("\n```", begin) - begin) + "\n";
}

/// Everything about a directory that must not change: names, contents, permissions and times.
std::map<std::string, std::string> stateOf(const fs::path& directory) {
    // From a process of its own: closing a file would drop the locks that this one's connections hold on it.
    test::ChildProcess reader([&](int output) {
        std::ostringstream text;
        std::vector<fs::path> paths{directory};
        for (const auto& entry :
             fs::recursive_directory_iterator(directory, fs::directory_options::skip_permission_denied))
            paths.push_back(entry.path());
        for (const fs::path& path : paths) {
            struct stat status{};
            ::stat(path.c_str(), &status);
            text << path.native() << '\t' << status.st_ino << ' ' << status.st_mode << ' ' << status.st_size << ' '
                 << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec << ' '
                 << std::hash<std::string>()(fs::is_regular_file(path) ? contentsOf(path) : "") << '\n';
        }
        const std::string all = text.str();
        return ::write(output, all.data(), all.size()) == static_cast<ssize_t>(all.size()) ? 0 : 1;
    });
    std::string text;
    for (char letter = 0; ::read(reader.output(), &letter, 1) == 1;)
        text += letter;
    EXPECT_EQ(reader.wait(), 0);
    std::map<std::string, std::string> state;
    std::istringstream lines(text);
    for (std::string name, rest; std::getline(lines, name, '\t') && std::getline(lines, rest);)
        state[name] = rest;
    return state;
}

/// A host that has the store open, with its samples in the log.
class RunningHost {
public:
    explicit RunningHost(const fs::path& data, int samples = 3)
        : platform_(platform::Platform::makeLinux(
              {.dataDirectory = data, .bundleDirectory = data, .bundleIdentifier = "org.example.study"})) {
        for (int number = 0; number < samples; ++number)
            controller_.saveTrackingData(DataReader::ambientLight(1), {{"lux", number + 0.1}, {"channel0", 1e21}});
        controller_.saveTrackingData(DataReader::distance(1), {{"leftEye", 31.25}});
    }

    void makeIdentifier() { platform_->userDefaults().setValueForKey("participant \"7\"", "userID"); }
    std::string document() {
        return std::string(controller_.loadTrackingData([this] { return sender(*platform_); })->view());
    }

private:
    std::unique_ptr<platform::Platform> platform_;
    PersistenceController controller_{*platform_};
};

platform::ManagedObject sampleOf(int number) {
    const std::string values = R"({"lux":)" + std::to_string(number) + "}";
    const auto bytes = std::as_bytes(std::span(values));
    return {.id = Uuid::random(),
            .timestamp = 1.7e9 + number,
            .type = "ambient_light",
            .data = std::vector(bytes.begin(), bytes.end())};
}

class Tool : public ::testing::Test {
protected:
    Tool() { fs::create_directory(data); }

    void expectOneSentence(const std::string& part, const std::vector<std::string>& arguments,
                           const Preparation& prepare = nullptr) {
        const auto before = stateOf(directory.path());
        const auto [code, output, errors] = run(arguments, prepare);
        EXPECT_EQ(code, 1) << part;
        EXPECT_EQ(output, "") << part;
        EXPECT_THAT(errors, HasSubstr(part));
        EXPECT_TRUE(errors.ends_with(".\n") && std::ranges::count(errors, '\n') == 1) << errors;
        EXPECT_EQ(stateOf(directory.path()), before) << part;
    }
    void expectOneSentenceOfEach(const std::string& part, const Preparation& prepare = nullptr) {
        for (const std::vector<std::string>& command :
             {std::vector<std::string>{"preview"}, {"export", "--csv"}, {"verify"}, {"recover", "--output", fresh}}) {
            SCOPED_TRACE(command.front());
            auto arguments = command;
            arguments.insert(arguments.end(), {"--data", data});
            expectOneSentence(part, arguments, prepare);
        }
    }

    TemporaryDirectory directory;
    fs::path data = directory.path() / "org.example.study";
    fs::path store = data / "TrackingDataContainer.sqlite";
    fs::path fresh = directory.path() / "fresh.sqlite";
};

}  // namespace

TEST_F(Tool, PrintsItsHelpAndRefusesWrongArguments) {
    for (const auto& arguments : {std::vector<std::string>{"--help"}, {"verify", "--help"}, {"calibrate", "--help"}}) {
        const auto [code, output, errors] = run(arguments);
        EXPECT_EQ(code, 0);
        EXPECT_THAT(output, HasSubstr("Usage: "));
        EXPECT_EQ(errors, "");
    }
    EXPECT_THAT(run({"--version"}).output, MatchesRegex("tarvex [0-9]+[.][0-9]+[.][0-9]+\n"));
    for (const auto& arguments : {std::vector<std::string>{},
                                  {"nonsense"},
                                  {"verify"},
                                  {"verify", "--data"},
                                  {"preview", "--data", data, "more"},
                                  {"export", "--data", data},
                                  {"recover", "--data", data},
                                  {"doctor", "--measures", "sound"},
                                  {"calibrate", "--distance-cm", "nan"}}) {
        const auto [code, output, errors] = run(arguments);
        EXPECT_EQ(code, 2);
        EXPECT_EQ(output, "");
        EXPECT_THAT(errors, HasSubstr("Usage: "));
    }
}

TEST_F(Tool, ReadsTheStoreOfAHostThatRunsAndOfOneThatDoesNotAndChangesNothing) {
    std::optional<RunningHost> host(std::in_place, data);
    const std::string csv = R"(timestamp,timeUTC,type,channel0,leftEye,lux
T,ambient_light,1e+21,,0.1
T,ambient_light,1e+21,,1.1
T,ambient_light,1e+21,,2.1
T,distance,,31.25,
)";
    ASSERT_TRUE(fs::exists(store.native() + "-wal") && fs::file_size(store.native() + "-wal") > 0);
    ::setenv("XDG_DATA_HOME", directory.path().c_str(), 1);
    const auto lookAtAll = [&] {
        const auto before = stateOf(directory.path());
        const auto verified = run({"verify", "--identifier", "org.example.study"});
        EXPECT_EQ(verified.code, 0) << verified.errors;
        EXPECT_THAT(verified.output, MatchesRegex("4 readable records, from 20.*Z to 20.*Z; the store is whole.\n"));
        auto exported = run({"export", "--csv", "--data", data});
        EXPECT_EQ(exported.errors, "");
        for (std::size_t at = 0; (at = exported.output.find("\n1", at)) != std::string::npos; ++at)
            exported.output.replace(at + 1, exported.output.find("Z,", at) - at, "T");
        EXPECT_EQ(exported.output, csv);
        const auto shown = run({"preview", "--identifier", "org.example.study"});
        EXPECT_EQ(shown.code, 0);
        EXPECT_EQ(stateOf(directory.path()), before);
        return shown;
    };
    const auto without = lookAtAll();
    EXPECT_THAT(without.errors, HasSubstr("no user identifier yet"));
    EXPECT_THAT(without.output, HasSubstr(R"("userId":"",)"));
    host->makeIdentifier();
    const std::string document = host->document() + "\n";
    EXPECT_EQ(lookAtAll().output, document);
    expectOneSentence("in use by process " + std::to_string(::getpid()),
                      {"recover", "--data", data, "--output", fresh});
    host.reset();
    const auto shown = lookAtAll();
    EXPECT_EQ(shown.output, document);
    EXPECT_EQ(shown.errors, "");
}

TEST_F(Tool, SaysInOneSentenceWhatIsWrongWithADirectoryAndLeavesItAlone) {
    expectOneSentenceOfEach("holds no TrackingDataContainer.sqlite");
    writeFile(store, "This is a letter, and no database; it is long enough to be looked at, though.");
    expectOneSentenceOfEach("file is not a database: " + store.native());
    fs::remove(store);
    {
        const RunningHost host(data);
    }
    OtherProgram(store).run("ALTER TABLE DataEntry ADD COLUMN accuracy REAL");
    expectOneSentenceOfEach("this version");
    fs::remove(store);
    writeFile(store.native() + "-wal", "samples");
    writeFile(store, "");
    expectOneSentenceOfEach("database is empty but its log is not: " + store.native());
    expectOneSentenceOfEach("There is no temporary directory for a copy",
                            [] { return ::setenv("TMPDIR", "/absent", 1) == 0; });
    fs::remove_all(data);
    expectOneSentenceOfEach("There is no " + data.native());
    writeFile(data, "no directory");
    expectOneSentenceOfEach("is no directory");
    expectOneSentence("Info.plist", {"verify", "--bundle", directory.path()});
    writeFile(directory.path() / "Info.plist", "<plist><dict><key>CFBundleName</key><string>A</string></dict></plist>");
    expectOneSentence("no CFBundleIdentifier", {"verify", "--bundle", directory.path()});
    writeFile(directory.path() / "Info.plist", "<plist><di");
    expectOneSentence("cannot be read", {"verify", "--bundle", directory.path()});
}

TEST_F(Tool, SaysSoWhenItMayNotReadTheStore) {
    {
        const RunningHost host(data);
    }
    // Root may read everything, with these; and this test's own program, which another user might not reach.
    const auto giveUpRights = [] {
        return ::geteuid() != 0 ||
               (::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) == 0 && ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) == 0);
    };
    for (const fs::path& withheld : {store, data}) {
        const auto rights = fs::status(withheld).permissions();
        fs::permissions(withheld, fs::perms::none);
        expectOneSentenceOfEach("Permission denied", giveUpRights);
        fs::permissions(withheld, rights);
    }
}

TEST_F(Tool, RecoversWhatADamagedStoreStillHoldsIntoANewFileOnly) {
    constexpr int samples = 400;
    std::optional<RunningHost> host(std::in_place, data, samples);
    host.reset();
    const std::vector<std::string> recover{"recover", "--data", data, "--output", fresh};
    EXPECT_THAT(run(recover).output, HasSubstr("401 records are in " + fresh.native() + "; none was lost"));
    expectOneSentence("There is something at " + fresh.native(), recover);
    fs::rename(fresh, fresh.native() + "-wal");
    expectOneSentence("There is something at " + fresh.native() + "-wal", recover);
    fs::remove(fresh.native() + "-wal");
    expectOneSentence("left as it is", {"recover", "--data", data, "--output", data / "new.sqlite"});
    expectOneSentence("cannot be made", {"recover", "--data", data, "--output", directory.path() / "absent" / "new"});

    constexpr int pageSize = 4096;
    const std::string leaf = OtherProgram(store).run(
        "SELECT pageno FROM dbstat WHERE name = 'DataEntry' AND pagetype = 'leaf' ORDER BY path LIMIT 1 OFFSET 4");
    std::fstream(store, std::ios::binary | std::ios::in | std::ios::out).seekp((std::stoi(leaf) - 1) * pageSize)
        << std::string(pageSize, '\0');
    const auto before = stateOf(data);
    const auto verified = run({"verify", "--data", data});
    EXPECT_EQ(verified.code, 1);
    EXPECT_THAT(verified.errors, HasSubstr(store.native() + " is damaged"));
    EXPECT_THAT(verified.errors, HasSubstr("records the store cannot be read"));
    EXPECT_EQ(run({"preview", "--data", data}).code, 1);
    EXPECT_EQ(run({"export", "--csv", "--data", data}).code, 1);
    const auto recovered = run(recover);
    EXPECT_EQ(recovered.code, 0) << recovered.errors;
    EXPECT_THAT(recovered.output, HasSubstr("a part of the store could not be read"));
    EXPECT_EQ(stateOf(data), before);

    EXPECT_EQ(fs::status(fresh).permissions(), fs::perms(0600));
    EXPECT_FALSE(fs::exists(fresh.native() + "-wal"));
    EXPECT_EQ(OtherProgram(fresh).run("PRAGMA integrity_check"), "ok");
    const int saved = std::stoi(OtherProgram(fresh).run("SELECT count(*) FROM DataEntry"));
    EXPECT_TRUE(saved > samples - 80 && saved < samples) << "all but a page: " << saved;
    EXPECT_EQ(OtherProgram(fresh).run("SELECT max(seq) - min(seq) + 1 FROM DataEntry"), std::to_string(saved));
    EXPECT_EQ(OtherProgram(fresh).run("SELECT type FROM DataEntry ORDER BY seq DESC LIMIT 1"), "distance");
    // As the document says it, also for a store that does not even open.
    fs::remove(fresh);
    OtherProgram(store).run("DELETE FROM _scrub");
    EXPECT_EQ(run({"verify", "--data", data}).code, 1);
    writeFile(directory.path() / "recipe", documentedRecovery());
    const std::string command = "cd " + directory.path().native() + " && PATH='" +
                                fs::path(TARVEX_TOOL_PROGRAM).parent_path().native() + "':$PATH data=" + data.native() +
                                " sh -e recipe >log 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << contentsOf(directory.path() / "log");
    EXPECT_EQ(run({"verify", "--data", data}).code, 0);
    host.emplace(data, 1);
    const std::string document = host->document();
    EXPECT_EQ(decodeTrackingDataWrapper(document)->trackingData.size(), static_cast<std::size_t>(saved) + 2);
}

TEST_F(Tool, SeesAWholeStoreWhileAHostStoresAndDeletes) {
    platform::SqliteObjectStore objects([this] { return data; });
    const auto container = objects.makeContainer("TrackingDataContainer");
    ASSERT_TRUE(container->loadPersistentStores());
    auto& context = container->viewContext();
    const platform::FetchRequest all = DataEntry::fetchRequest();
    std::atomic<bool> isOver = false;
    std::atomic<int> changes = 0;
    std::atomic<int> failures = 0;
    std::thread work([&] {
        for (; !isOver; ++changes) {
            for (int number = 0; number < 20'000; ++number)
                *context.insertNewObject(all.entityName) = sampleOf(number);
            failures += !context.save() || (changes % 3 == 2 && !context.batchDelete(all));
            context.scrub();
        }
    });
    for (int round = 0; round < 30; ++round) {
        const auto [code, output, errors] = run({"verify", "--data", data});
        EXPECT_EQ(code, 0) << errors;
    }
    isOver = true;
    work.join();
    EXPECT_GT(changes, 3);
    EXPECT_EQ(failures, 0) << "no look keeps a host from storing and deleting";
}

TEST_F(Tool, LetsTheDoctorSayWhatMustBeDoneForScriptsToo) {
    const auto missing = run({"doctor", "--data", data, "--json"});
    EXPECT_EQ(missing.code, 1);
    const auto json = platform::decodeJson(missing.output);
    ASSERT_TRUE(json) << missing.output;
    const auto& object = std::get<platform::JsonValue::Object>(json->value);
    EXPECT_FALSE(std::get<bool>(object.at("good").value));
    for (const auto& finding : std::get<platform::JsonValue::Array>(object.at("findings").value)) {
        const auto& members = std::get<platform::JsonValue::Object>(finding.value);
        for (const char* name : {"what", "state", "detail", "remedy"})
            EXPECT_TRUE(members.contains(name) && members.size() == 4) << missing.output;
    }
    RunningHost host(data);
    const auto before = stateOf(directory.path());
    const auto text = run({"doctor", "--data", data, "--measures", "light"}).output;
    EXPECT_THAT(text, HasSubstr("good  store: it is whole and holds 4 samples"));
    EXPECT_THAT(text, HasSubstr("bad   consent to light: it is not given"));
    EXPECT_THAT(text, HasSubstr("process " + std::to_string(::getpid()) + " has the store open"));
    EXPECT_THAT(text, Not(HasSubstr("GStreamer")));
    EXPECT_EQ(stateOf(directory.path()), before);
}

}  // namespace tarvex::tool
