#include "browser.h"
#include "page_server.h"

namespace tarvex::collector {
namespace {

using test::Browser;
using test::PageServer;
using test::SimulatedStudy;

constexpr auto isLoaded = "document.documentElement.dataset.state === 'loaded'";
constexpr auto areChartsDrawn =
    "document.querySelectorAll('.plot canvas').length === 2 && !document.querySelector('.loading')";

std::filesystem::path picture(const std::string& name) {
    return std::filesystem::path(TARVEX_TEST_PICTURES) / ("research-page-" + name + ".png");
}

class PageInBrowser : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Browser::isInstalled()) GTEST_SKIP() << "Chromium is not installed";
        browser = std::make_unique<Browser>();
        browser->emulate(1'360, 900, false);
    }
    void TearDown() override {
        if (!browser) return;
        for (const std::string& asked : browser->addresses)
            EXPECT_TRUE(asked.starts_with(server.address() + "/") || asked.starts_with("data:image/svg+xml,") ||
                        asked == "about:blank")
                << asked << " is another place";
        EXPECT_THAT(browser->complaints, IsEmpty());
    }
    void open(const std::string& participant = "") {
        browser->open(server.addressWithToken());
        browser->await(isLoaded);
        if (participant.empty()) return;
        browser->evaluate("location.hash = 'participant=' + encodeURIComponent(" + Browser::Json(participant).dump() +
                          ")");
        browser->await(areChartsDrawn);
    }
    std::string textOf(const std::string& selector) {
        return browser->evaluate("document.querySelector(" + Browser::Json(selector).dump() + ").innerText")
            .get<std::string>();
    }
    std::size_t countOf(const std::string& selector) {
        return browser->evaluate("document.querySelectorAll(" + Browser::Json(selector).dump() + ").length")
            .get<std::size_t>();
    }

    PageServer server;
    std::unique_ptr<Browser> browser;
};

TEST_F(PageInBrowser, ShowsWhoSendsAndWhatIsWrong) {
    open();
    EXPECT_EQ(browser->evaluate("location.search"), "") << "the token is gone from the address";
    EXPECT_EQ(browser->evaluate("document.cookie"), "") << "and no script can read it";
    EXPECT_EQ(countOf(".days tbody tr"), 24U);
    EXPECT_EQ(countOf(".days tbody td.day"), 24U * 21);
    EXPECT_EQ(countOf("#problems li"), 10U);
    EXPECT_THAT(textOf("#problems li"), HasSubstr("Nothing has come for 5 days"));
    EXPECT_EQ(countOf("#pen li"), 2U);
    const auto levelsOf = [this](const std::string& name) {
        return browser
            ->evaluate("[...[...document.querySelectorAll('.days tbody tr')].find(row => row.innerText.startsWith('" +
                       name + "')).querySelectorAll('td.day')].map(cell => cell.dataset.level || '-').join('')")
            .get<std::string>();
    };
    EXPECT_THAT(levelsOf("P01"), EndsWith("5555555555555555555"));
    EXPECT_THAT(levelsOf("P03"), EndsWith("555100000")) << "silent for five days";
    EXPECT_THAT(levelsOf("P19"), EndsWith("3333333332")) << "half of what is expected";
    EXPECT_THAT(levelsOf("P20"), EndsWith("------------355555554")) << "not in the study yet";
    EXPECT_THAT(textOf("header"), HasSubstr("As of 25 Nov 2026, 09:30 UTC"));
    browser->takePicture(picture("light"));
    browser->evaluate("document.querySelectorAll('details').forEach(one => { one.open = true; })");
    EXPECT_THAT(textOf("#unreadable td:last-child"), HasSubstr("<b>12</b>"));
    browser->click("input[value=distance]");
    EXPECT_EQ(textOf(".days tbody tr:nth-child(2) td:nth-child(6)"), "180")
        << "the count where nobody knows what to expect";
    browser->takePicture(picture("distance"));
}

TEST_F(PageInBrowser, ShowsWhateverAParticipantIsCalledAsText) {
    open(SimulatedStudy::hostileMarkup);
    EXPECT_EQ(textOf("#participant-title"), SimulatedStudy::hostileMarkup);
    EXPECT_EQ(countOf("img"), 0U);
    EXPECT_EQ(browser->evaluate("document.title"), "Tarvex study");
    open(SimulatedStudy::hostileSql);
    EXPECT_EQ(textOf("#participant-title"), SimulatedStudy::hostileSql);
    browser->open(server.address() + "/#participant=");
    browser->await(areChartsDrawn);
    EXPECT_EQ(textOf("#participant-title"), "(no identifier)");
}

TEST_F(PageInBrowser, ZoomsByDraggingAndGoesBackByADoubleClick) {
    open("P08");
    const std::string whole = textOf(".range .text");
    browser->drag(".chart .u-over", 0.3, 0.5);
    browser->await("document.querySelector('.range .text').innerText !== " + Browser::Json(whole).dump());
    EXPECT_EQ(browser->evaluate("document.querySelectorAll('[aria-pressed=true]').length"), 0);
    browser->await("!document.querySelector('.loading')");
    browser->takePicture(picture("zoomed"));
    browser->doubleClick(".chart .u-over");
    browser->await("document.querySelector('.range .text').innerText === " + Browser::Json(whole).dump());
    for (const std::string preset : {"day", "all", "week"}) {
        browser->click("[data-preset=" + preset + "]");
        browser->await("document.querySelector('[data-preset=" + preset +
                       "]').getAttribute('aria-pressed') === 'true'");
    }
    EXPECT_EQ(textOf(".range .text"), whole);
}

TEST_F(PageInBrowser, IsWalkedWithTheKeyboard) {
    open();
    browser->evaluate("document.querySelector('.days td.day').focus()");
    for (const auto* key : {"ArrowDown", "ArrowRight", "ArrowRight", "ArrowLeft"})
        browser->press(key);
    EXPECT_THAT(browser->evaluate("document.activeElement.getAttribute('aria-label')").get<std::string>(),
                HasSubstr("P01, Friday, 6 Nov 2026, light: 288 samples of 288 expected (100 %)"));
    EXPECT_EQ(countOf(".days td[tabindex='0']"), 1U) << "one stop for the Tab key";
    browser->press("Enter");
    browser->await(areChartsDrawn);
    EXPECT_EQ(textOf("#participant-title"), "P01");
    EXPECT_EQ(textOf(".range .text"), "6 Nov 2026, 00:00 UTC – 7 Nov 2026, 00:00 UTC");
    EXPECT_THAT(browser->evaluate("document.querySelector('.plot').getAttribute('aria-label')").get<std::string>(),
                HasSubstr("Chart of the light of P01: 288 samples between "));
}

TEST_F(PageInBrowser, FindsAParticipantAmongMany) {
    std::vector<std::string> names{"7D92ED5E-7E52-4165-A85A-0F9B99E5B6DE", "17B82AA7-97BF-4B7E-8B7C-CF71A07D7737"};
    for (int number = 0; number < 298; ++number)
        names.push_back("many " + std::to_string(number));
    for (const std::string& name : names) {
        server.study.people[name].facts = server.study.people["P18"].facts;
        server.study.people[name].facts.identifier = name;
    }
    open();
    EXPECT_EQ(countOf(".days tbody tr"), 50U);
    EXPECT_EQ(textOf("#page-number"), "Page 1 of 7, 324 participants");
    browser->click("#next-page");
    EXPECT_EQ(textOf("#page-number"), "Page 2 of 7, 324 participants");
    EXPECT_EQ(countOf("#problems li"), 101U) << "a hundred, and a button for the others";
    browser->click("#problems li:last-child button");
    EXPECT_EQ(countOf("#problems li"), 310U);
    browser->evaluate("document.querySelector('#filter').focus()");
    browser->type("MANY 29");
    EXPECT_EQ(countOf(".days tbody tr"), 9U);
    browser->type("x");
    EXPECT_EQ(textOf("#grid"), "No participant's name holds this text.");
    browser->evaluate("document.querySelector('#filter').value = ''");
    browser->type("-4");
    EXPECT_EQ(countOf(".days tbody tr"), 2U);
    EXPECT_THAT(textOf(".days tbody"), ::testing::StartsWith("17B82AA7"));
}

TEST_F(PageInBrowser, DeletesOnceTheIdentifierIsTypedAndEnrolsWhoWaits) {
    open("P08");
    browser->click(".foot .danger");
    browser->await("document.querySelector('#deletion').open");
    browser->type("P0");
    EXPECT_EQ(browser->evaluate("document.querySelector('#deletion-delete').disabled"), true);
    browser->type("8");
    browser->takePicture(picture("deletion"), false);
    browser->press("Enter");
    browser->await("document.querySelectorAll('.days tbody tr').length === 23");
    EXPECT_FALSE(server.study.people.contains("P08"));
    browser->await("document.querySelector('#message').innerText === 'P08 is deleted.'");
    browser->click("#pen li:last-child button");
    browser->await("document.querySelectorAll('.days tbody tr').length === 24");
    EXPECT_EQ(textOf("#message"), "visitor 7 is enrolled.");
}

TEST_F(PageInBrowser, DrawsAMillionSamplesAsFourThousandBuckets) {
    server.study.fillLight("P01", 1'000'000);
    browser->emulate(1'500, 900, false);
    open("P01");
    browser->click("[data-preset=all]");
    browser->await("document.querySelector('[data-preset=all]').getAttribute('aria-pressed') === 'true'");
    EXPECT_THAT(browser->evaluate("document.querySelector('.plot').getAttribute('aria-label')").get<std::string>(),
                HasSubstr("1,000,000 samples"));
    browser->takePicture(picture("million"));
    const double milliseconds = browser
                                    ->evaluate(R"((async () => {
        const { Chart, align } = await import("/chart.js");
        const answer = await (await fetch("/api/series?participant=P01&column=lux&buckets=4000")).json();
        const place = document.querySelector("#grid").appendChild(document.createElement("div"));
        const readout = document.createElement("span");
        const chart = new Chart({place, readout, hint: "", unit: "lux", names: [""], colours: ["--accent"], isLogarithmic: true});
        const start = performance.now();
        chart.show(align([answer.buckets], 1, 1), answer);
        await new Promise(requestAnimationFrame);
        return performance.now() - start;
    })())")
                                    .get<double>();
    EXPECT_GT(milliseconds, 0);
    std::cout << "4,000 buckets were drawn within " << milliseconds << " ms\n";
}

TEST_F(PageInBrowser, SaysWhatToDoWhenThereIsNothingOrTheTokenIsMissing) {
    browser->open(server.address());
    browser->await("document.body.innerText.includes('tarvex-collector token')");
    server.study.people.clear();
    open();
    EXPECT_THAT(textOf("#grid"), HasSubstr("Nothing has arrived yet: "));
    EXPECT_EQ(countOf("#pen-section[hidden]"), 1U);
    browser->takePicture(picture("empty"));
    // Of the page without a token, and of the icon that a browser then asks for in its own time.
    std::erase_if(browser->complaints, [](const std::string& one) { return one.contains("status of 401"); });
}

TEST_F(PageInBrowser, FitsNarrowScreensAndDarkRooms) {
    for (const auto& [name, width, isDark] : {std::tuple("dark", 1'360, true), std::tuple("narrow", 360, false)}) {
        browser->emulate(width, 900, isDark);
        browser->open("about:blank");
        open("P09");
        browser->takePicture(picture(name));
        EXPECT_EQ(browser->evaluate("document.documentElement.scrollWidth"), width) << "nothing sticks out";
        const auto ground = browser->evaluate("getComputedStyle(document.body).backgroundColor").get<std::string>();
        EXPECT_EQ(ground, isDark ? "rgb(16, 20, 21)" : "rgb(244, 246, 246)");
    }
}

}  // namespace
}  // namespace tarvex::collector
