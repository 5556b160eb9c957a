// The collector as a process of its own, and the transport that hosts reach it with.

#include <httplib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "child_process.h"
#include "platform/curl/posted_request.h"
#include "prelude.h"
#include "tarvex/testing/loopback_url_session.h"

namespace tarvex::collector {
namespace {

using ::testing::StartsWith;

/// Runs the program; its output is the pipe's, `toJournal` as if that were the journal's.
std::unique_ptr<test::ChildProcess> run(std::vector<std::string> arguments, bool toJournal = false) {
    arguments.insert(arguments.begin(), TARVEX_COLLECTOR_PROGRAM);
    const char* asTheJournal = "exec 3>&1; JOURNAL_STREAM=$(stat -Lc %d:%i /dev/fd/3) exec \"$0\" \"$@\"";
    if (toJournal) arguments.insert(arguments.begin(), {"/bin/sh", "-c", asTheJournal});
    const test::Program program(std::move(arguments));
    return std::make_unique<test::ChildProcess>([&](int output) {
        ::dup2(output, STDOUT_FILENO);
        return program.become();
    });
}

std::string outputOf(const test::ChildProcess& process, std::size_t lines = SIZE_MAX) {
    std::string text;
    for (char letter = 0; lines > 0 && ::read(process.output(), &letter, 1) == 1;) {
        text.push_back(letter);
        if (letter == '\n') --lines;
    }
    return text;
}

class CollectorProgram : public ::testing::Test {
protected:
    CollectorProgram() { configure(); }

    void configure(const std::string& more = "") {
        test::writeFile(configuration_,
                        "directory = '" + (directory_.path() / "data").string() +
                            "'\n[ingest]\nport = 0\nnames = ['" TARVEX_BACKEND_HOST "']\n[page]\nport = 0\n" + more);
    }

    /// Starts to serve, and waits until it does.
    void serve() {
        serving_ = run({"--config", configuration_, "serve"});
        const std::string line = outputOf(*serving_, 1);
        page_ = outputOf(*serving_, 1);
        ASSERT_THAT(line, HasSubstr("Documents are received on 127.0.0.1:"));
        const auto port = static_cast<std::uint16_t>(std::stoi(line.substr(line.rfind(':') + 1)));
        session_ = tarvex::testing::makeLoopbackUrlSession(
            port, test::contentsOf(directory_.path() / "data" / "certificate.pem"));
    }

    /// The status that the program answers with; 0 when it did not answer.
    int post(const std::string& document) {
        auto request = test::request(test::bodyOf(document), 60s, "https://" TARVEX_BACKEND_HOST "/tracking");
        return test::PostedRequest(*session_, std::move(request)).outcome().status.value_or(0);
    }

    std::string command(std::vector<std::string> arguments, int expected = 0) {
        arguments.insert(arguments.begin(), {"--config", configuration_.string()});
        const auto process = run(arguments);
        std::string output = outputOf(*process);
        EXPECT_EQ(process->wait(), expected);
        return output;
    }

    static std::string document(int number) { return documentOf("one", {{1'790'000'000 + number, number}}); }

    /// Of light, by time.
    static std::string documentOf(const std::string& participant, const std::map<std::int64_t, int>& samples) {
        std::string records;
        for (const auto& [time, lux] : samples)
            records += (records.empty() ? "" : ",") +
                       (R"({"type":"ambient_light","timestamp":)" + std::to_string(time)) + R"(,"data":{"lux":)" +
                       std::to_string(lux) + R"(,"channel0":0,"channel1":0,"channel2":0,"channel3":0}})";
        return R"({"trackingData":[)" + records + R"(],"userId":")" + participant + "\"}";
    }

    TemporaryDirectory directory_;
    std::filesystem::path configuration_ = directory_.path() / "collector.toml";
    std::unique_ptr<test::ChildProcess> serving_;
    std::unique_ptr<platform::UrlSession> session_;
    std::string page_;  ///< the line with its address
};

}  // namespace

TEST_F(CollectorProgram, ReceivesKeepsAndShowsWhatHostsPost) {
    serve();
    EXPECT_EQ(post(document(1)), 200);
    EXPECT_EQ(post(document(1)), 200);
    EXPECT_EQ(post("[]"), 400);
    serving_->kill(SIGHUP);
    EXPECT_EQ(post(document(2)), 200);
    EXPECT_THAT(command({"status"}), HasSubstr("1 participant, 2 documents"));
    EXPECT_THAT(command({"status", "--json"}), HasSubstr("\"repeats\": 1"));
    EXPECT_EQ(command({"export", "--type", "light"}),
              "participant,time,timeUTC,lux,channel0,channel1,channel2,channel3\n"
              "one,1790000001,2026-09-21T14:13:21.000000Z,1,0,0,0,0\n"
              "one,1790000002,2026-09-21T14:13:22.000000Z,2,0,0,0,0\n");
    command({"export"}, 2);
    const std::size_t begin = page_.find("http://");
    const std::size_t query = page_.find("/?token=");
    ASSERT_TRUE(begin != std::string::npos && query != std::string::npos) << page_;
    httplib::Client browser(page_.substr(begin, query - begin));
    EXPECT_EQ(browser.Get("/")->status, 401);
    EXPECT_EQ(browser.Get("/export/light.csv")->status, 401);
    browser.set_bearer_token_auth(page_.substr(query + 8, page_.size() - query - 9).c_str());
    EXPECT_THAT(browser.Get("/")->body, HasSubstr("<html"));
    EXPECT_EQ(browser.Get("/export/light.csv")->body, command({"export", "--type", "light"}));
    EXPECT_THAT(browser.Get("/export/participant.zip?participant=one")->body, StartsWith("PK"));
    EXPECT_THAT(browser.Get("/metrics")->body, HasSubstr("\ntarvex_documents_total 2\n"));
    EXPECT_THAT(command({"delete", "--participant", "one"}), HasSubstr("Deleted, for good."));
    EXPECT_EQ(post(document(3)), 200) << "acknowledged and dropped, while the same process serves";
    serving_->kill(SIGTERM);
    EXPECT_EQ(serving_->wait(), 0);
    EXPECT_THAT(command({"status"}), HasSubstr("Nothing has arrived yet."));
    const std::string address = command({"token"});
    EXPECT_THAT(address, HasSubstr("/?token="));
    EXPECT_EQ(command({"token"}), address);
    EXPECT_NE(command({"token", "--new"}), address);
    EXPECT_EQ(command({"--print-config"}), test::contentsOf(TARVEX_DEFAULT_CONFIGURATION));
    command({"enrol", "--participant", "nobody"}, 1);
    command({"nonsense"}, 2);
    test::writeFile(configuration_, "port = 1\n");
    command({"serve"}, 2);
}

TEST_F(CollectorProgram, KeepsTheTokenOfThePageOutOfTheJournal) {
    const auto serving = run({"--config", configuration_, "serve"}, true);
    EXPECT_THAT(outputOf(*serving, 2),
                ::testing::ContainsRegex("The page: http://127.0.0.1:[0-9]+/, and `tarvex-collector token` gives"));
}

TEST_F(CollectorProgram, AnnouncesWhereItServesAsLongAsItDoes) {
    const auto place = directory_.path() / "new" / "announcement";
    const auto serving = run({"--config", configuration_, "serve", "--announce", place});
    const std::string lines = outputOf(*serving, 2);
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(place / "port"); })) << "it is the last one";
    EXPECT_THAT(lines, HasSubstr("127.0.0.1:" + test::contentsOf(place / "port")));
    EXPECT_THAT(lines, HasSubstr("The page: " + test::contentsOf(place / "page")));
    EXPECT_EQ(std::filesystem::status(place / "page").permissions(), std::filesystem::perms(0600));
    session_ =
        tarvex::testing::makeLoopbackUrlSession(static_cast<std::uint16_t>(std::stoi(test::contentsOf(place / "port"))),
                                                test::contentsOf(place / "certificate.pem"));
    EXPECT_EQ(post(document(1)), 200);
    serving->kill(SIGTERM);
    EXPECT_EQ(serving->wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(place / "port") || std::filesystem::exists(place / "page"));

    const auto refused = run({"--config", configuration_, "serve", "--announce", configuration_});
    EXPECT_EQ(refused->wait(), 1) << "no directory";
}

TEST_F(CollectorProgram, TakesANewCertificateAndANewTokenAtSighupAndAnnouncesThem) {
    const auto place = directory_.path() / "announcement";
    const auto other = directory_.path() / "other.toml";
    test::writeFile(other, "directory = '" + (directory_.path() / "other").string() +
                               "'\n[ingest]\nport = 0\nnames = ['" TARVEX_BACKEND_HOST "']\n[page]\nport = 0\n");
    outputOf(*run({"--config", other, "serve"}), 2);  // it makes a certificate
    const auto serving = run({"--config", configuration_, "serve", "--announce", place});
    outputOf(*serving, 2);
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(place / "port"); }));
    const auto port = static_cast<std::uint16_t>(std::stoi(test::contentsOf(place / "port")));
    const std::string oldPage = test::contentsOf(place / "page");
    httplib::Client browser(oldPage.substr(0, oldPage.find("/?")));
    const auto opens = [&](const std::string& page) {
        return browser.Get(page.substr(page.find("/?"), page.size() - page.find("/?") - 1))->status == 303;
    };
    EXPECT_TRUE(opens(oldPage));

    command({"token", "--new"});
    for (const char* file : {"certificate.pem", "key.pem"})
        std::filesystem::copy_file(directory_.path() / "other" / file, directory_.path() / "data" / file,
                                   std::filesystem::copy_options::overwrite_existing);
    const std::string certificate = test::contentsOf(directory_.path() / "other" / "certificate.pem");
    EXPECT_NE(test::contentsOf(place / "certificate.pem"), certificate);
    serving->kill(SIGHUP);
    ASSERT_TRUE(eventually([&] { return test::contentsOf(place / "certificate.pem") == certificate; }));
    ASSERT_TRUE(eventually([&] { return test::contentsOf(place / "page") != oldPage; }));
    EXPECT_TRUE(opens(test::contentsOf(place / "page")));
    EXPECT_FALSE(opens(oldPage));
    session_ = tarvex::testing::makeLoopbackUrlSession(port, certificate);
    EXPECT_EQ(post(document(1)), 200);

    command({"token", "--new"});  // shows when the signal was heard
    test::writeFile(directory_.path() / "data" / "certificate.pem", "none");
    const std::string newPage = test::contentsOf(place / "page");
    serving->kill(SIGHUP);
    ASSERT_TRUE(eventually([&] { return test::contentsOf(place / "page") != newPage; }));
    EXPECT_EQ(test::contentsOf(place / "certificate.pem"), certificate) << "what still holds";
    EXPECT_EQ(post(document(2)), 200);
}

TEST_F(CollectorProgram, LeavesANewTokenThatRootMakesToTheOwnerOfTheDirectory) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root makes files for somebody else";
    constexpr ::uid_t nobody = 65'534;
    const auto data = directory_.path() / "data";
    std::filesystem::create_directory(data);
    ASSERT_EQ(::chown(data.c_str(), nobody, nobody), 0);
    command({"token", "--new"});
    struct ::stat token{};
    ASSERT_EQ(::stat((data / "token").c_str(), &token), 0);
    EXPECT_EQ(token.st_uid, nobody);
    EXPECT_EQ(token.st_mode & 0777U, 0600U);
}

TEST_F(CollectorProgram, DeletesWhatIsTooOldAlsoInThePenAndLetsNoRepeatBringItBack) {
    constexpr std::int64_t day = 86'400;
    const std::int64_t now = std::time(nullptr);
    const std::string enrolment = "[enrolment]\nrequired = true\nidentifiers = ['one']\n";
    // Participants and numbers of lux.
    const auto stored = [&] {
        std::istringstream rows(command({"export", "--type", "light", "--pen"}));
        std::vector<std::string> found;
        std::array<std::string, 4> cells;
        for (std::string row; std::getline(rows, row);) {
            std::istringstream line(row);
            for (std::string& cell : cells)
                std::getline(line, cell, ',');
            if (cells[0] != "participant") found.push_back(cells[0] + cells[3]);
        }
        return found;
    };
    const auto post = [&](const std::map<std::int64_t, int>& samples) {
        for (const char* participant : {"one", "stranger"})
            EXPECT_EQ(CollectorProgram::post(documentOf(participant, samples)), 200);
    };
    const std::map<std::int64_t, int> first{{now - 31 * day, 1}, {now - 29 * day, 2}};
    configure(enrolment);
    serve();
    post(first);
    EXPECT_THAT(stored(), ElementsAre("one1", "one2", "stranger1", "stranger2"));

    configure(enrolment + "[retention]\ndays = 30\n");
    serve();
    EXPECT_TRUE(eventually([&] { return stored() == std::vector<std::string>{"one2", "stranger2"}; }));
    post(first);
    post({{now - 40 * day, 3}, {now - 31 * day, 1}, {now - 29 * day, 2}, {now, 4}});
    EXPECT_THAT(stored(), ElementsAre("one2", "one4", "stranger2", "stranger4"));
}

TEST_F(CollectorProgram, HasEverythingThatItAcknowledgedOnceAfterEachKill) {
    int next = 0;
    for (int round = 0; round < 5; ++round) {
        serve();
        std::thread killer([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100 + round * 30));
            serving_->kill();
        });
        while (post(document(next)) == 200)
            ++next;
        killer.join();
    }
    EXPECT_GT(next, 5) << "it got somewhere";
    const std::string rows = command({"export", "--type", "light", "--format", "jsonl"});
    for (int number = 0; number < next; ++number)
        EXPECT_THAT(rows, HasSubstr("\"lux\":" + std::to_string(number) + ","));
    EXPECT_LE(std::ranges::count(rows, '\n'), next + 5) << "each once, and at most one a round that nobody answered";
    serve();
    for (int number = 0; number < next; ++number)
        EXPECT_EQ(post(document(number)), 200);
    EXPECT_EQ(command({"export", "--type", "light", "--format", "jsonl"}).size(), rows.size());
}

}  // namespace tarvex::collector
