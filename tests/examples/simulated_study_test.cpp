// The program as a process of its own, whose participants share with a backend in this one.

#include <sys/wait.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "prelude.h"
#include "recording_backend.h"

namespace tarvex {
namespace {

using nlohmann::json;

constexpr double end = 1'800'000'000;  // the 15th of January 2027
constexpr double day = 24 * 60 * 60;

struct Program {
    explicit Program(const std::string& arguments, const std::string& environment = "TZ=UTC") {
        const std::string command = environment + " '" TARVEX_SIMULATED_STUDY "' " + arguments + " 2>&1";
        FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) throw std::runtime_error("popen");
        std::array<char, 4096> part{};
        while (const std::size_t count = fread(part.data(), 1, part.size(), pipe))
            output.append(part.data(), count);
        status = WEXITSTATUS(pclose(pipe));
    }
    std::string output;
    int status = -1;
};

/// A backend, and what a study of two days has brought to it.
class ShortStudy {
public:
    explicit ShortStudy(int answer = 200)
        : backend_({.directory = directory_.path(), .host = TARVEX_BACKEND_HOST, .status = answer},
                   [this](const auto& document) {
                       const std::lock_guard guard(mutex_);
                       files_.push_back(document.file);
                   }) {
        std::filesystem::create_directory(temporary());
    }

    Program play(const std::string& options) const {
        return Program(
            "--collector '" + directory_.path().string() + "' --days 2 --end " + std::to_string(end) + " " + options,
            "TZ=UTC TMPDIR='" + temporary().string() + "'");
    }
    bool leftNothing() const { return std::filesystem::is_empty(temporary()); }
    std::size_t documents() const { return files().size(); }

    /// Every sample that was posted, by participant and type, in the order of the posts.
    std::map<std::string, std::map<std::string, std::vector<json>>> samples() const {
        std::map<std::string, std::map<std::string, std::vector<json>>> result;
        for (const auto& file : files()) {
            const json document = json::parse(contentsOf(file));
            for (const json& sample : document["trackingData"])
                result[document["userId"]][sample["type"]].push_back(sample);
        }
        return result;
    }

private:
    std::filesystem::path temporary() const { return directory_.path() / "temporary"; }
    std::vector<std::filesystem::path> files() const {
        const std::lock_guard guard(mutex_);
        return files_;
    }

    TemporaryDirectory directory_;
    mutable std::mutex mutex_;
    std::vector<std::filesystem::path> files_;  ///< under `mutex_`: the backend's threads add to them
    test::RecordingBackend backend_;
};

std::set<json> different(const std::vector<json>& samples, const char* part) {
    std::set<json> result;
    for (const json& sample : samples)
        result.insert(sample[part]);
    return result;
}

/// The identifiers of the table, in the order of the participants.
std::vector<std::string> identifiers(const std::string& output) {
    std::vector<std::string> result;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        if (line.size() > 36 && std::ranges::count(line.substr(0, 36), '-') == 4) result.push_back(line.substr(0, 36));
    return result;
}

void expectOneEveryTenMinutes(const std::vector<json>& light, double last) {
    ASSERT_THAT(light, SizeIs(2 * 24 * 6));
    for (std::size_t place = 0; place < light.size(); ++place)
        EXPECT_NEAR(light[place]["timestamp"], last - 600.0 * static_cast<double>(light.size() - 1 - place), 0.1);
}

}  // namespace

TEST(SimulatedStudy, BringsTheDaysOfItsParticipantsThroughTheLibrary) {
    const ShortStudy study;
    const Program program = study.play("--participants 2");
    ASSERT_EQ(program.status, 0) << program.output;
    EXPECT_THAT(program.output.substr(0, program.output.find('\n')), HasSubstr("simulated"));
    EXPECT_TRUE(study.leftNothing());

    auto samples = study.samples();
    const auto participants = identifiers(program.output);
    ASSERT_THAT(participants, SizeIs(2));
    ASSERT_THAT(samples, UnorderedElementsAre(Pair(participants[0], SizeIs(2)), Pair(participants[1], SizeIs(2))));
    std::size_t sum = 0;
    for (auto& [participant, types] : samples) {
        expectOneEveryTenMinutes(types["ambient_light"], end);
        const auto& distances = types["distance"];
        sum += types["ambient_light"].size() + distances.size();
        EXPECT_THAT(distances.size(), ::testing::AllOf(::testing::Gt(10), ::testing::Lt(100))) << "not while asleep";
        for (const json& sample : distances) {
            const double left = sample["data"]["leftEyeDistanceFromCamera"];
            const double right = sample["data"]["rightEyeDistanceFromCamera"];
            EXPECT_THAT(left, ::testing::AllOf(::testing::Ge(30), ::testing::Le(70)));
            EXPECT_NEAR(left, right, 0.6);
        }
    }
    EXPECT_THAT(program.output, HasSubstr(" " + std::to_string(sum) + " ")) << "the sum of the table";
    EXPECT_GE(study.documents(), 4) << "each posts more than once";

    auto lightOfFirst = samples[participants[0]]["ambient_light"];
    EXPECT_GT(different(lightOfFirst, "data").size(), 50);
    EXPECT_THAT(different(samples[participants[1]]["ambient_light"], "data"), SizeIs(1)) << "its sensor is stuck";
    for (const json& sample : lightOfFirst) {
        const double lux = sample["data"]["lux"];
        const double clear = sample["data"]["channel3"];
        EXPECT_THAT(clear, ::testing::AllOf(::testing::Ge(3.4 * lux - 4), ::testing::Le(4.2 * lux + 4)));
        const double hour = std::fmod(sample["timestamp"].get<double>(), day) / 3600;
        EXPECT_TRUE(hour < 2 || hour > 5 || lux <= 2) << "dark at " << hour;
    }
}

TEST(SimulatedStudy, GivesSomeOfItsParticipantsAFault) {
    const ShortStudy study;
    const Program program = study.play("--participants 17");
    ASSERT_EQ(program.status, 0) << program.output;
    const auto participants = identifiers(program.output);
    ASSERT_THAT(participants, SizeIs(17));
    auto samples = study.samples();
    expectOneEveryTenMinutes(samples[participants[5 - 1]]["ambient_light"], end + day);
    const auto& stopped = samples[participants[11 - 1]]["ambient_light"];
    ASSERT_FALSE(stopped.empty());
    EXPECT_NEAR(stopped.front()["timestamp"], end - 2 * day + 600, 0.1);
    EXPECT_LT(stopped.back()["timestamp"], end - day);
    const auto& repeated = samples[participants[17 - 1]]["ambient_light"];
    EXPECT_THAT(different(repeated, "timestamp"), SizeIs(2 * 24 * 6));
    EXPECT_GT(repeated.size(), 2 * 24 * 6);
}

TEST(SimulatedStudy, MakesTheSameSamplesOfTheSameSeed) {
    const auto lightOfFirst = [](const std::string& seed) {
        const ShortStudy study;
        const Program program = study.play("--participants 1 --seed " + seed);
        EXPECT_EQ(program.status, 0) << program.output;
        return study.samples().begin()->second;
    };
    const auto samples = lightOfFirst("7");
    EXPECT_EQ(samples, lightOfFirst("7"));
    EXPECT_NE(samples, lightOfFirst("8"));
}

TEST(SimulatedStudy, NamesTheParticipantThatFailsAndWhy) {
    const ShortStudy refusing(503);
    const Program refused = refusing.play("--participants 2");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.output, HasSubstr("Participant 1 failed: A post failed: "));
    EXPECT_THAT(refused.output, HasSubstr("Participant 2 failed: A post failed: "));
    EXPECT_TRUE(refusing.leftNothing());

    const Program alone("--participants 1 --collector /nonexistent");
    EXPECT_EQ(alone.status, 1);
    EXPECT_THAT(alone.output, HasSubstr("Participant 1 failed: Cannot read a port from /nonexistent/port"));
    EXPECT_EQ(Program("--participants 0 --collector /nonexistent").status, 2);
}

}  // namespace tarvex
