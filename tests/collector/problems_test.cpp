#include "collector/research/problems.h"

#include "prelude.h"
#include "simulated_study.h"

namespace tarvex::collector {
namespace {

using test::SimulatedStudy;
using Kind = Problem::Kind;

std::vector<Problem> problemsOf(SimulatedStudy& study) {
    const auto store = study.open();
    const double now = SimulatedStudy::now;
    return findProblems(store->participants(), store->days({.from = now - 21 * 86'400.0, .until = now + 86'400}), 21,
                        now);
}

TEST(Problems, FindsEachFaultOfAStudyOnceAndTheWorstFirst) {
    SimulatedStudy study;
    std::vector<std::pair<std::string, Kind>> found;
    for (const Problem& problem : problemsOf(study))
        found.emplace_back(problem.participant, problem.kind);
    EXPECT_THAT(found, ElementsAre(Pair("P03", Kind::silent), Pair("P18", Kind::nothingMeasured),
                                   Pair("P07", Kind::lightIsZero), Pair("P05", Kind::lightIsStuck),
                                   Pair("P12", Kind::clockIsAhead), Pair("P13", Kind::clockIsBehind),
                                   Pair("P09", Kind::impossibleDistance), Pair("P10", Kind::impossibleDistance),
                                   Pair("P15", Kind::unreadable), Pair("P16", Kind::repeats)));
}

TEST(Problems, SaysEachInOnePlainSentence) {
    SimulatedStudy study;
    std::map<std::string, std::string> sentences;
    for (const Problem& problem : problemsOf(study))
        sentences[problem.participant] = problem.sentence;
    EXPECT_EQ(sentences["P03"], "Nothing has come for 5 days; the last contact was on 20 Nov 2026.");
    EXPECT_EQ(sentences["P18"], "Is in contact, but sent no sample of the last 21 days.");
    EXPECT_EQ(sentences["P07"],
              "The light was 0 lux all day on 4 days, last on 24 Nov 2026: the sensor is covered or broken.");
    EXPECT_EQ(sentences["P05"],
              "The light stood still at 312 lux all day on 3 days, last on 24 Nov 2026: the sensor is stuck.");
    EXPECT_EQ(sentences["P09"], "An eye was 3.2 cm away, nearer than any face, on 2 days, last on 24 Nov 2026.");
    EXPECT_EQ(sentences["P12"], "The clock is 3 hours ahead: the times of the samples are wrong.");
    EXPECT_EQ(sentences["P15"], "17 records could not be read.");
    EXPECT_EQ(sentences["P16"], "4,211 samples came again and were dropped; nothing is lost.");
}

TEST(Problems, NamesTheLastDayOfSamplesOfWhoeverIsInContactWithoutNewOnes) {
    const double now = SimulatedStudy::now;
    const std::int64_t today = static_cast<std::int64_t>(now / 86'400);
    const auto found = [&](std::int64_t newest, double skew) {
        const Participant late{
            .identifier = "P", .application = "", .device = "", .lastContact = now - 60, .clockSkew = skew};
        std::vector<std::string> sentences;
        for (const Problem& problem : findProblems({late},
                                                   {{"P", Signal::light, newest, 900, 0, 9, 80'000},
                                                    {"P", Signal::distance, newest - 1, 900, 40, 60, 80'000}},
                                                   21, now))
            sentences.push_back((problem.severity == Problem::Severity::error ? "error: " : "") + problem.sentence);
        return sentences;
    };
    EXPECT_THAT(
        found(today - 4, -4 * 86'400.0),
        ElementsAre("error: Is in contact, but the newest sample is of 21 Nov 2026: nothing was measured since, "
                    "or the clock is behind."));
    EXPECT_THAT(found(today - 2, -2.2 * 86'400), ElementsAre(HasSubstr("old when it came"))) << "a warning";
    EXPECT_THAT(found(today - 2, 0), IsEmpty());
}

TEST(Problems, LeavesAloneWhatIsWithinTheLimits) {
    const double now = SimulatedStudy::now;
    const std::int64_t today = static_cast<std::int64_t>(now / 86'400);
    const Participant sound{
        .identifier = "P", .application = "", .device = "", .lastContact = now - 86'400, .clockSkew = 600};
    Participant waiting = sound;
    waiting.isEnrolled = false;
    waiting.lastContact = 0;
    waiting.unreadable = 9;
    const std::vector<DaySummary> days{
        {"P", Signal::light, today - 1, 19, 5, 5, 0},      // too few samples to judge by
        {"P", Signal::light, today, 2'000, 0, 0, 30'000},  // today is not over
        {"P", Signal::light, today - 2, 900, 0, 0.1, 80'000},
        {"P", Signal::distance, today - 2, 900, 10, 200, 80'000},
    };
    EXPECT_THAT(findProblems({sound, waiting}, days, 21, now), IsEmpty());
}

}  // namespace
}  // namespace tarvex::collector
