// From posted bodies to the store's file, without the network.

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/wait.h>

#include "collector/ingest/importer.h"
#include "collector/store/sqlite/sqlite_store.h"
#include "platform/sqlite/interposed_vfs.h"
#include "prelude.h"

namespace tarvex::collector {
namespace {

using ::testing::AnyOf;

constexpr double noon = 1'790'000'000;

std::string lightAt(double time, double lux) {
    return R"({"type":"ambient_light","timestamp":)" + std::to_string(time) + R"(,"data":{"lux":)" +
           std::to_string(lux) + R"(,"channel0":1,"channel1":2,"channel2":3,"channel3":4}})";
}

std::string documentOf(const std::string& participant, const std::vector<std::string>& records) {
    std::string text = R"({"trackingData":[)";
    for (const std::string& record : records)
        text += (text.back() == '[' ? "" : ",") + record;
    return text + R"(],"userId":")" + participant + R"(","device":"phone","applicationIdentifier":"org.example"})";
}

/// A store in a file, and an importer before it.
class Imports : public ::testing::Test {
protected:
    std::filesystem::path file() const { return directory_.path() / "samples.sqlite"; }
    std::unique_ptr<Store> open() const { return openSqliteStore(file(), vfs_); }

    Importer::Options options() const {
        return {.open = [this] { return open(); }, .spool = directory_.path()};
    }

    /// The status that a body is answered with.
    int post(Importer& importer, const std::string& text) const {
        TemporaryFile file(directory_.path());
        file.append(std::as_bytes(std::span(text)));
        Request request{.head = {}, .file = std::move(file), .body = {}};
        SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), request.body.digest.data());
        request.body.bytes = text.size();
        request.body.received = noon;
        std::promise<int> status;
        importer.submit(std::move(request), [&](const Response& response) { status.set_value(response.status); });
        return status.get_future().get();
    }

    std::vector<AmbientLight> stored(const std::string& participant, bool includesPen = false) const {
        std::vector<AmbientLight> samples;
        open()->visitLight({.participant = participant, .time = {}, .includesPen = includesPen},
                           [&](const std::string&, const AmbientLight& sample) { samples.push_back(sample); });
        return samples;
    }

    std::string bytes() const {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
            std::ifstream stream(entry.path(), std::ios::binary);
            all.append(std::istreambuf_iterator<char>(stream), {});
        }
        return all;
    }

    TemporaryDirectory directory_;
    const char* vfs_ = nullptr;
};

/// Files whose disk is full from one call on, until it is not.
class FullDisk final : public test::InterposedVfs {
public:
    int before(test::FileCall call) override {
        const bool needsRoom = call == test::FileCall::write || call == test::FileCall::sync;
        return needsRoom && isCounting && --callsLeft < 0 ? SQLITE_FULL : SQLITE_OK;
    }

    bool isCounting = false;
    int callsLeft = 0;
};

}  // namespace

TEST_F(Imports, StoreEachSampleOnceHoweverOftenAndInWhateverOrderItComes) {
    Importer importer(options());
    const std::string first = lightAt(noon, 1);
    const std::string second = lightAt(noon + 1, 2);
    const std::string third = lightAt(noon + 2, 3);
    for (const auto& records :
         {std::vector{first, second}, {first, second}, {second, first}, {second, third, third}, {}})
        EXPECT_EQ(post(importer, documentOf("one", records)), 200);
    EXPECT_EQ(post(importer, documentOf("two", {first})), 200);
    EXPECT_EQ(post(importer, documentOf("", {first, "7"})), 200) << "an empty identifier is one, too";
    EXPECT_THAT(stored("one"), SizeIs(3));
    EXPECT_THAT(stored("two"), SizeIs(1));
    const auto participants = open()->participants();
    ASSERT_THAT(participants, SizeIs(3));
    EXPECT_EQ(participants[0].identifier, "");
    EXPECT_EQ(participants[0].unreadable, 1);
    EXPECT_EQ(participants[1].documents, 4);
    EXPECT_EQ(participants[1].repeats, 6);
    EXPECT_EQ(participants[1].clockSkew, 2);
    EXPECT_EQ(post(importer, "{}"), 400);
    EXPECT_EQ(importer.totals().refused, 1);
    EXPECT_EQ(importer.totals().fresh, 5);
}

TEST_F(Imports, KeepAStrangerInThePenUntilItIsEnrolled) {
    Importer::Options penned = options();
    penned.needsEnrolment = true;
    penned.enrolled = {"known"};
    Importer importer(penned);
    for (const char* participant : {"known", "stranger"})
        EXPECT_EQ(post(importer, documentOf(participant, {lightAt(noon, 1)})), 200);
    EXPECT_THAT(stored("known"), SizeIs(1));
    EXPECT_THAT(stored("stranger"), IsEmpty());
    EXPECT_THAT(stored("stranger", true), SizeIs(1)) << "as durably";
    EXPECT_TRUE(open()->enrol("stranger"));
    EXPECT_FALSE(open()->enrol("nobody"));
    EXPECT_THAT(stored("stranger"), SizeIs(1));
}

TEST_F(Imports, BringNothingBackThatWasDeletedOrHasExpired) {
    Importer::Options retaining = options();
    retaining.expired = [] { return noon - 10; };
    Importer importer(retaining);
    const std::string secret = "secret-identifier-of-a-participant";
    const std::string document =
        documentOf(secret, {lightAt(noon - 20, 123.4375), lightAt(noon, 123.4375), "\"excerpt\""});
    EXPECT_EQ(post(importer, document), 200);
    EXPECT_THAT(stored(secret), SizeIs(1)) << "the other one was too old";
    EXPECT_EQ(post(importer, documentOf("other", {lightAt(noon, 5)})), 200);
    EXPECT_THAT(bytes(), HasSubstr(secret));
    EXPECT_TRUE(open()->erase(secret));
    EXPECT_FALSE(open()->erase("never-seen"));
    EXPECT_THAT(bytes(), Not(HasSubstr(secret)));
    EXPECT_THAT(bytes(), Not(HasSubstr("excerpt\"")));
    for (const std::string& again :
         {document, documentOf(secret, {lightAt(noon, 9)}), documentOf("never-seen", {lightAt(noon, 9)})})
        EXPECT_EQ(post(importer, again), 200) << "acknowledged, so that the device may delete it";
    EXPECT_THAT(stored(secret), IsEmpty());
    EXPECT_THAT(stored("never-seen"), IsEmpty());
    EXPECT_THAT(open()->participants(), SizeIs(1));
    EXPECT_EQ(open()->expire(noon + 1), 1);
    EXPECT_THAT(stored("other"), IsEmpty());
}

TEST_F(Imports, AcknowledgeNothingWhileTheDiskIsFullAndLoseNothingAfterwards) {
    FullDisk disk;
    vfs_ = disk.name();
    int refused = 0;
    int accepted = 0;
    for (int calls = 0; accepted < 3 && calls < 100; ++calls) {
        SCOPED_TRACE(calls);
        std::filesystem::remove_all(directory_.path());
        std::filesystem::create_directory(directory_.path());
        Importer importer(options());
        EXPECT_EQ(post(importer, documentOf("one", {lightAt(noon, 0)})), 200);
        disk.callsLeft = calls;
        disk.isCounting = true;
        std::vector<std::string> records;
        for (int record = 0; record < 100; ++record)
            records.push_back(lightAt(noon + record, 1));
        const int status = post(importer, documentOf("one", records));
        disk.isCounting = false;
        EXPECT_THAT(status, AnyOf(200, 503));
        (status == 200 ? accepted : refused) += 1;
        // Without a sync nothing may be acknowledged, though the rows may be there.
        EXPECT_THAT(stored("one").size(), AnyOf(101U, status == 200 ? 101U : 1U));
        EXPECT_EQ(post(importer, documentOf("one", records)), 200);
        EXPECT_EQ(stored("one").size(), 101);
    }
    EXPECT_GT(refused, 1);
    EXPECT_EQ(accepted, 3);
    vfs_ = nullptr;
}

TEST_F(Imports, HaveEveryAcknowledgedDocumentOnceAfterTheCollectorWasKilled) {
    const auto document = [](int number) { return documentOf("one", {lightAt(noon + number, number)}); };
    constexpr int rounds = 15;
    int next = 0;
    for (int round = 0; round < rounds; ++round) {
        std::array<int, 2> acknowledged{};
        ASSERT_EQ(::pipe2(acknowledged.data(), O_CLOEXEC), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            Importer importer(options());
            for (int number = next;; ++number) {
                if (post(importer, document(number)) != 200) ::_exit(1);
                if (::write(acknowledged[1], &number, sizeof number) != sizeof number) ::_exit(1);
            }
        }
        ::close(acknowledged[1]);
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + round * 7));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        for (int number = 0; ::read(acknowledged[0], &number, sizeof number) == sizeof number;)
            next = number + 1;
        ::close(acknowledged[0]);
        const auto samples = stored("one");
        ASSERT_GE(samples.size(), static_cast<std::size_t>(next));
        for (int number = 0; number < next; ++number)
            ASSERT_EQ(samples[static_cast<std::size_t>(number)].lux, number);
    }
    EXPECT_GT(next, rounds) << "it got somewhere";
    Importer importer(options());
    for (int number = 0; number < next; ++number)
        EXPECT_EQ(post(importer, document(number)), 200);
    EXPECT_LE(stored("one").size(), static_cast<std::size_t>(next) + 1) << "at most one that was not acknowledged";
}

}  // namespace tarvex::collector
