#pragma once

#include <numeric>
#include <random>

#include "post.h"

// What every engine does alike.
namespace tarvex::collector::behaviour {

/// Opens the store that a behaviour uses; each of its threads opens it for itself.
using OpenStore = std::function<std::unique_ptr<Store>()>;

inline void keepsEverySampleOnce(const OpenStore& open) {
    const auto store = open();
    Post first = everySecond(0, 100);
    first.other(noon, "blink", R"({"eye":"left"})");
    EXPECT_FALSE(store->countRepeat(first.body).has_value());
    EXPECT_THAT(numbersOf(first.to(*store)), ElementsAre(201, 201, 0));
    EXPECT_THAT(numbersOf(first.to(*store)), ElementsAre(201, 0, 1)) << "the same body, imported";
    EXPECT_THAT(numbersOf(store->countRepeat(first.body).value()), ElementsAre(201, 0, 1));
    EXPECT_THAT(numbersOf(everySecond(50, 150).to(*store)), ElementsAre(200, 100, 0)) << "an overlap";

    Post shuffled;
    std::vector<int> seconds(150);
    std::iota(seconds.begin(), seconds.end(), 0);
    std::ranges::shuffle(seconds, std::mt19937(randomSeed(1)));
    for (const int second : seconds)
        shuffled.light(noon + second, second).distance(noon + second);
    for (int copy = 0; copy < 2; ++copy)
        shuffled.other(noon, "blink", R"({"eye":"left"})");
    EXPECT_THAT(numbersOf(shuffled.to(*store)), ElementsAre(302, 0, 0));

    // As much alike as samples of one time can be.
    Post similar;
    similar.light(noon, std::nextafter(0.0, 1.0)).light(noon, -1).distance(noon, 50, std::nextafter(51.0, 52.0));
    similar.other(noon, "blink", R"({"eye":"right"})").other(noon, "glance", R"({"eye":"left"})");
    similar.other(noon, "long", std::string(100'000, 'x'));
    EXPECT_THAT(numbersOf(similar.to(*store)), ElementsAre(6, 6, 0));
    EXPECT_EQ(everySecond(0, 10, "P-2").to(*store).fresh, 20) << "the same samples of another participant";

    const Contents contents = contentsOf(*open(), selected("P-1"));
    EXPECT_THAT(contents.light, SizeIs(152));
    EXPECT_THAT(contents.distances, SizeIs(151));
    EXPECT_THAT(contents.others, SizeIs(4));
    const auto participants = store->participants();
    ASSERT_THAT(participants, SizeIs(2));
    EXPECT_EQ(participants[0].documents, 4);
    EXPECT_EQ(participants[0].repeats, 201 + 201 + 100 + 302);
}

inline void keepsALargeDocumentInAnyOrder(const OpenStore& open) {
    constexpr int count = 100'000;  // more than a batch
    const auto store = open();
    Post sorted;
    Post mixed;
    std::set<std::pair<int, int>> expected;
    for (int sample = 0; sample < count; ++sample) {
        sorted.light(noon + sample / 3, 1);
        expected.emplace(sample / 3, 1);
    }
    EXPECT_EQ(sorted.to(*store).fresh, expected.size());
    for (int sample = count; sample-- > 0;) {
        mixed.light(noon + sample % (count / 2), sample % 7);
        expected.emplace(sample % (count / 2), sample % 7);
    }
    EXPECT_EQ(mixed.to(*store).fresh, expected.size() - (count / 3 + 1));

    Post others;
    for (int sample = 2 * count; sample-- > 0;) {
        others.distance(noon + sample % 1'000);
        if (sample % 3 == 0) others.other(noon + sample % 1'000, "blink", "{}");
        if (sample % 2 == 0) others.light(noon + sample % 1'000 - 500, 9);
    }
    EXPECT_EQ(others.to(*store, noon).fresh, 2'250) << "and without those that have expired";
    const Contents contents = contentsOf(*store);
    EXPECT_EQ(contents.light.size(), expected.size() + 250);
    EXPECT_THAT(contents.distances, SizeIs(1'000));
    EXPECT_THAT(contents.others, SizeIs(1'000));
}

/// Two collectors behind one address get the same from a host that has lost patience.
inline void keepsWhatComesToTwoAtOnceOnce(const OpenStore& open) {
    constexpr int rounds = 5;
    for (int round = 0; round < rounds; ++round) {
        const std::string participant = "P-" + std::to_string(round);
        const Post post = everySecond(0, 3'000, participant);
        Post shuffled(participant);
        for (int second = 3'000; second-- > 0;)
            shuffled.light(noon + second, second).distance(noon + second);
        std::latch ready(3);
        std::atomic<std::uint64_t> fresh = 0;
        std::atomic<int> repeats = 0;
        const auto send = [&](const Post& what) {
            const auto store = open();
            ready.arrive_and_wait();
            const Receipt receipt = what.to(*store);
            fresh += receipt.fresh;
            repeats += receipt.isRepeat ? 1 : 0;
        };
        {
            const std::array threads{std::jthread(send, std::cref(post)), std::jthread(send, std::cref(post)),
                                     std::jthread(send, std::cref(shuffled))};
        }
        EXPECT_EQ(fresh, 6'000);
        EXPECT_EQ(repeats, 1);
        EXPECT_EQ(contentsOf(*open(), selected(participant)).size(), 6'000);
    }
}

inline void forgetsADeletedParticipantForGood(const OpenStore& open) {
    const auto store = open();
    Post post = everySecond(0, 10, "gone");
    post.other(noon, "blink", "{}").document.unreadable = {{.reason = "no time", .excerpt = "{}"}};
    post.to(*store);
    everySecond(0, 10, "stays").to(*store);
    EXPECT_TRUE(store->erase("gone"));
    EXPECT_FALSE(store->erase("gone"));
    EXPECT_FALSE(store->erase("never there"));
    EXPECT_FALSE(store->countRepeat(post.body).has_value());
    EXPECT_THAT(numbersOf(post.to(*open())), ElementsAre(21, 0, 0)) << "acknowledged and dropped";
    EXPECT_EQ(everySecond(0, 1, "never there").to(*store).fresh, 0);
    EXPECT_EQ(contentsOf(*store).size(), 20);
    ASSERT_THAT(store->participants(), SizeIs(1));
    EXPECT_EQ(store->participants()[0].identifier, "stays");
    EXPECT_THAT(store->unreadable(10), IsEmpty());
}

inline void keepsTheSamplesOfWrongClocks(const OpenStore& open) {
    const auto store = open();
    const std::vector<double> times{
        -1e300, -1e17, -1, 0, 1'420'070'399.999, 1'420'070'400, noon, 4'133'980'799.9, 4'133'980'800, 1.7e10, 1e300};
    Post post;
    for (const double time : times)
        post.light(time).distance(time).other(time, "blink", "{}");
    EXPECT_EQ(post.to(*store).fresh, 3 * times.size());
    Post again;
    for (const double time : times)
        again.light(time).distance(time).other(time, "blink", "{}");
    EXPECT_EQ(again.to(*store).fresh, 0);
    const Contents contents = contentsOf(*store, selected(std::nullopt, {.from = -1e308, .until = 1e308}));
    ASSERT_THAT(contents.light, SizeIs(times.size()));
    for (std::size_t place = 0; place < times.size(); ++place)
        EXPECT_EQ(contents.light[place].time, times[place]);
    EXPECT_EQ(contentsOf(*store).light.size(), times.size());
    EXPECT_THAT(store->days({}), SizeIs(2 * (times.size() - 3))) << "those that a calendar has";
    EXPECT_EQ(store->participants()[0].clockSkew, 1e300 - noon);
}

inline void takesAnyText(const OpenStore& open) {
    const auto store = open();
    const std::vector<std::string> texts{"",
                                         "'; DROP TABLE participants; --",
                                         "$1",
                                         "%s \\ \"",
                                         std::string("a\0b", 3),
                                         std::string("a\1\2b"),
                                         "a\1",
                                         "a\2",
                                         "a",
                                         "ünï\u2028cödé \U0001F600",
                                         std::string(20'000, 'i')};
    for (const std::string& text : texts) {
        Post post(text);
        post.document.sender.application = post.document.sender.device = text;
        post.light(noon).other(noon, text, R"({"v":")" + text + "\"}");
        post.document.unreadable = {{.reason = text, .excerpt = text}};
        EXPECT_EQ(post.to(*store).fresh, 2);
        store->note({.time = noon, .what = text});
        EXPECT_EQ(store->audit(1).at(0).what, text);
        EXPECT_TRUE(store->enrol(text));
        EXPECT_THAT(contentsOf(*store, selected(text)).others,
                    ElementsAre(OtherSample{noon, text, R"({"v":")" + text + "\"}"}));
        EXPECT_THAT(store->series(text, Column::lux, {.from = noon, .until = noon + 1}, 1), SizeIs(1));
    }
    auto expected = texts;
    std::ranges::sort(expected);
    std::vector<std::string> found;
    for (const Participant& participant : store->participants()) {
        found.push_back(participant.identifier);
        EXPECT_EQ(participant.application, participant.identifier);
        EXPECT_EQ(participant.device, participant.identifier);
    }
    EXPECT_THAT(found, ElementsAreArray(expected));
    for (const UnreadableRecord& record : store->unreadable(100))
        EXPECT_EQ(record.excerpt, record.participant);
    for (const std::string& text : texts)
        EXPECT_TRUE(store->erase(text));
    EXPECT_EQ(contentsOf(*store).size(), 0);
}

inline void summarisesWhatItHolds(const OpenStore& open) {
    const auto store = open();
    constexpr double midnight = 1'790'035'200;
    constexpr std::int64_t day = 20'718;
    Post post;
    post.light(midnight, 5).light(midnight + 100.5, 300).light(midnight + 86'399, 7).light(midnight + 86'400, 9);
    post.distance(midnight + 10, 40, 60).distance(midnight + 20, 70, 30);
    post.document.unreadable = {{.reason = "first", .excerpt = "1"}, {.reason = "second", .excerpt = "2"}};
    post.document.unreadableCount = 5'000;
    post.body.received = midnight + 86'000;
    post.to(*store);
    Post empty;
    empty.document.sender.device = "tablet";
    empty.body.received = midnight + 90'000;
    empty.to(*store);

    const auto days = store->days({.from = midnight, .until = midnight + 86'400});
    ASSERT_THAT(days, SizeIs(2));
    const DaySummary& light = days[days[0].signal == Signal::light ? 0 : 1];
    const DaySummary& distance = days[days[0].signal == Signal::light ? 1 : 0];
    EXPECT_EQ(std::tuple(light.participant, light.day, light.samples), std::tuple("P-1", day, 3UL));
    EXPECT_EQ(std::tuple(light.least, light.greatest, light.seconds), std::tuple(5, 300, 86'399UL));
    EXPECT_EQ(std::tuple(distance.signal, distance.day, distance.samples), std::tuple(Signal::distance, day, 2UL));
    EXPECT_EQ(std::tuple(distance.least, distance.greatest, distance.seconds), std::tuple(30, 40, 10UL));
    EXPECT_THAT(store->days({}), SizeIs(3));

    const auto buckets = store->series("P-1", Column::lux, {.from = midnight, .until = midnight + 86'400}, 24);
    ASSERT_THAT(buckets, SizeIs(2)) << "empty ones are left out";
    EXPECT_EQ(std::tuple(buckets[0].time, buckets[0].least, buckets[0].greatest, buckets[0].samples),
              std::tuple(midnight, 5, 300, 2UL));
    EXPECT_EQ(buckets[1].time, midnight + 23 * 3'600);
    EXPECT_EQ(store->series("P-1", Column::leftEye, {.from = midnight, .until = midnight + 15}, 1).at(0).greatest, 40);
    EXPECT_EQ(store->series("P-1", Column::rightEye, {.from = midnight, .until = midnight + 30}, 1).at(0).least, 30);
    EXPECT_THAT(store->series("nobody", Column::lux, {}, 10), IsEmpty());
    EXPECT_THAT(store->series("P-1", Column::lux, {.from = midnight, .until = midnight}, 10), IsEmpty());

    const auto participants = store->participants();
    ASSERT_THAT(participants, SizeIs(1));
    EXPECT_EQ(participants[0].application, "study");
    EXPECT_EQ(participants[0].device, "tablet");
    EXPECT_EQ(participants[0].firstContact, midnight + 86'000);
    EXPECT_EQ(participants[0].lastContact, midnight + 90'000);
    EXPECT_EQ(participants[0].unreadable, 5'000);
    EXPECT_EQ(participants[0].clockSkew, 400) << "of the last document that has a sample";
    EXPECT_THAT(store->unreadable(10), SizeIs(2));
    ASSERT_THAT(store->unreadable(1), SizeIs(1));
    EXPECT_EQ(store->unreadable(1)[0].participant, "P-1");
    store->note({.time = 1, .what = "older"});
    store->note({.time = 2, .what = "newer"});
    EXPECT_EQ(store->audit(10).at(0).what, "newer");
    EXPECT_THAT(store->audit(1), SizeIs(1));
}

inline void keepsThoseApartWhomNobodyHasEnrolled(const OpenStore& open) {
    const auto store = open();
    const Post post = everySecond(0, 5, "stranger");
    store->import(post.body, post.document, true, never);
    everySecond(0, 5, "member").to(*store);
    EXPECT_FALSE(store->participants().at(1).isEnrolled);
    EXPECT_EQ(contentsOf(*store, enrolled()).size(), 10);
    EXPECT_EQ(contentsOf(*store, enrolled("stranger")).size(), 0);
    EXPECT_EQ(contentsOf(*store, selected("stranger")).size(), 10);
    EXPECT_EQ(contentsOf(*store, selected("member", {.from = noon + 1, .until = noon + 3})).size(), 4);
    EXPECT_FALSE(store->enrol("nobody"));
    EXPECT_TRUE(store->enrol("stranger"));
    const Post more = everySecond(5, 10, "stranger");
    store->import(more.body, more.document, true, never);
    EXPECT_TRUE(store->participants().at(1).isEnrolled) << "and stays so";
    EXPECT_EQ(contentsOf(*store, enrolled()).size(), 30);
}

inline void dropsWhatHasExpired(const OpenStore& open) {
    constexpr double month = 31 * 86'400;
    const auto store = open();
    const auto other = open();
    Post post;
    for (int back = 0; back < 5; ++back)
        post.light(noon - back * month).distance(noon - back * month);
    post.light(0).other(noon - month, "blink", "{}").other(noon, "blink", "{}");
    EXPECT_EQ(post.to(*other).fresh, 13);
    EXPECT_EQ(store->expire(noon - 1.5 * month), 7);
    EXPECT_EQ(store->expire(noon - 1.5 * month), 0);
    EXPECT_EQ(contentsOf(*store).size(), 6);
    EXPECT_THAT(numbersOf(post.to(*other)), ElementsAre(13, 0, 1)) << "an old body stays known";

    Post again;
    for (int back = 0; back < 5; ++back)
        again.light(noon - back * month, 2);
    EXPECT_THAT(numbersOf(again.to(*other, noon - 1.5 * month)), ElementsAre(5, 2, 0));
    EXPECT_EQ(store->participants()[0].repeats, 13) << "what has expired has not come again";
    Post late;
    for (int back = 0; back < 5; ++back)
        late.light(noon - back * month, 3);
    EXPECT_EQ(late.to(*other).fresh, 5) << "into months that are gone";
    EXPECT_EQ(contentsOf(*store).size(), 13);
}

inline void showsWhatIsThereWhenAVisitEndsEarly(const OpenStore& open) {
    const auto store = open();
    everySecond(0, 10'000, "P-1").to(*store);
    int seen = 0;
    const auto stop = [&](const std::string&, const AmbientLight&) {
        if (++seen == 5) throw std::domain_error("enough");
    };
    EXPECT_THROW(store->visitLight({}, stop), std::domain_error);
    EXPECT_EQ(seen, 5);
    EXPECT_EQ(contentsOf(*store).size(), 20'000);
}

struct Behaviour {
    const char* name;
    void (*check)(const OpenStore&);
};

inline constexpr std::array all{
    Behaviour{"keeps every sample once", keepsEverySampleOnce},
    Behaviour{"keeps a large document in any order", keepsALargeDocumentInAnyOrder},
    Behaviour{"keeps what comes to two at once once", keepsWhatComesToTwoAtOnceOnce},
    Behaviour{"forgets a deleted participant for good", forgetsADeletedParticipantForGood},
    Behaviour{"keeps the samples of wrong clocks", keepsTheSamplesOfWrongClocks},
    Behaviour{"takes any text", takesAnyText},
    Behaviour{"summarises what it holds", summarisesWhatItHolds},
    Behaviour{"keeps those apart whom nobody has enrolled", keepsThoseApartWhomNobodyHasEnrolled},
    Behaviour{"drops what has expired", dropsWhatHasExpired},
    Behaviour{"shows what is there when a visit ends early", showsWhatIsThereWhenAVisitEndsEarly},
};

}  // namespace tarvex::collector::behaviour
