#include "collector/research/research_page.h"

#include <nlohmann/json.hpp>

#include "prelude.h"
#include "simulated_study.h"

namespace tarvex::collector {
namespace {

using Json = nlohmann::json;
using test::SimulatedStudy;
using Pairs = std::vector<std::pair<std::string, std::string>>;

constexpr auto token = "0123456789abcdef";
constexpr auto host = "127.0.0.1:8123";

std::string fieldOf(const Response& response, std::string_view name) {
    for (const auto& [key, value] : response.fields)
        if (key == name) return value;
    return "";
}

class ResearchPageTest : public ::testing::Test {
protected:
    ResearchPage::Options options() {
        return {.open = [this] { return study.open(); },
                .access = {.token = token, .port = [] { return std::uint16_t{8123}; }, .hosts = {"study.example.org"}},
                .expected = {.light = SimulatedStudy::interval, .distance = 0},
                .now = [this] { return now; },
                .exports = [](const RequestHead& head) -> std::optional<Response> {
                    if (head.path != "/export/light.csv") return std::nullopt;
                    return Response{.contentType = "text/csv", .body = "participant,time\n"};
                }};
    }

    Response request(const std::string& method, const std::string& path, Pairs query = {}, Pairs fields = {},
                     const std::string& body = "") {
        fields.emplace_back("host", host);
        const RequestHead head{method, path, std::move(query), std::move(fields), "127.0.0.1"};
        return page.answer(head, body);
    }
    Response get(const std::string& path, Pairs query = {}, Pairs fields = {}) {
        fields.emplace_back("authorization", std::string("Bearer ") + token);
        return request("GET", path, std::move(query), std::move(fields));
    }
    Response post(const std::string& path, const std::string& body, Pairs fields = {}) {
        fields.emplace_back("content-type", "application/json; charset=utf-8");
        fields.emplace_back("authorization", std::string("Bearer ") + token);
        return request("POST", path, {}, std::move(fields), body);
    }
    Json study_() { return Json::parse(get("/api/study").body); }

    SimulatedStudy study;
    double now = SimulatedStudy::now;
    ResearchPage page{options()};
};

TEST_F(ResearchPageTest, OpensWithTheTokenInTheAddressAndThenWithTheCookieAlone) {
    const Response welcome = request("GET", "/", {{"token", token}});
    EXPECT_EQ(welcome.status, 303);
    EXPECT_EQ(fieldOf(welcome, "Location"), "/");
    const std::string cookie = fieldOf(welcome, "Set-Cookie");
    EXPECT_THAT(cookie, HasSubstr("; HttpOnly; SameSite=Strict"));
    const std::string pair = cookie.substr(0, cookie.find(';'));
    EXPECT_EQ(request("GET", "/", {}, {{"cookie", "theme=dark; " + pair}}).status, 200);
    EXPECT_EQ(request("GET", "/api/study", {}, {{"cookie", pair}}).status, 200);
    EXPECT_EQ(request("GET", "/api/study", {}, {{"authorization", std::string("bearer  ") + token}}).status, 200);

    const std::string name = pair.substr(0, pair.find('='));
    for (const std::string& wrong : {name + "=", name + "=0123456789abcdeX", name + "=" + token + "0", "x" + pair,
                                     std::string("tarvex_research_8124=") + token}) {
        EXPECT_EQ(request("GET", "/", {}, {{"cookie", wrong}}).status, 401) << wrong;
    }
    EXPECT_THROW(ResearchPage({.open = nullptr, .access = {.token = "", .port = nullptr}, .now = nullptr}),
                 std::invalid_argument);
}

TEST_F(ResearchPageTest, SaysInOneSentenceWhatToDoWithoutTheToken) {
    for (const std::string path : {"/", "/page.js", "/export/light.csv", "/nowhere", "/../etc/passwd"}) {
        const Response response = request("GET", path);
        EXPECT_EQ(response.status, 401) << path;
        EXPECT_THAT(response.contentType, HasSubstr("text/html"));
        EXPECT_THAT(response.body, HasSubstr("<p>This page opens with its token only: take the address that"));
    }
    for (const Pairs& query : {Pairs{{"token", "0123456789abcdeX"}}, Pairs{{"token", ""}}}) {
        const Response response = request("GET", "/", query);
        EXPECT_EQ(response.status, 401);
        EXPECT_EQ(fieldOf(response, "Set-Cookie"), "");
    }
    EXPECT_THAT(Json::parse(request("GET", "/api/study", {{"token", token}}).body)["error"],
                HasSubstr("tarvex-collector token"));
    EXPECT_EQ(request("POST", "/api/delete", {{"token", token}}).status, 401);
    EXPECT_EQ(study.opened, 0) << "nobody without the token comes as far as the store";
}

TEST_F(ResearchPageTest, RefusesForeignHostsAndForeignOriginsAlsoWithTheToken) {
    const std::string bearer = std::string("Bearer ") + token;
    const auto statusFor = [&](const std::string& method, Pairs fields) {
        fields.emplace_back("authorization", bearer);
        fields.emplace_back("content-type", "application/json");
        const bool isGet = method == "GET";
        const RequestHead head{method, isGet ? "/" : "/api/enrol", {}, std::move(fields), "127.0.0.1"};
        return page.answer(head, R"({"participant":"visitor 7"})").status;
    };
    for (const std::string own : {"127.0.0.1:8123", "localhost:8123", "LOCALHOST:8123", "[::1]:8123",
                                  "study.example.org", "Study.Example.org:443"}) {
        EXPECT_EQ(statusFor("GET", {{"host", own}}), 200) << own;
        EXPECT_EQ(statusFor("POST", {{"host", own}, {"origin", "http://" + own}}), 200) << own;
    }
    for (const std::string foreign :
         {"", "127.0.0.1", "127.0.0.1:80", "127.0.0.1:81230", "127.0.0.1:8123@evil.example", "evil.example:8123",
          "localhost.evil.example:8123", "study.example.org.evil.example", "[::1]", "127.0.0.2:8123"}) {
        EXPECT_EQ(statusFor("GET", {{"host", foreign}}), 403) << foreign;
    }
    EXPECT_EQ(statusFor("GET", {}), 403) << "no Host";
    EXPECT_EQ(statusFor("GET", {{"host", host}, {"host", "evil.example"}}), 403) << "two of them";
    for (const std::string origin : {"null", "http://evil.example", "http://127.0.0.1:9000", "http://localhost:8123",
                                     "ftp://127.0.0.1:8123", "http://127.0.0.1:8123.evil.example"}) {
        EXPECT_EQ(statusFor("GET", {{"host", host}, {"origin", origin}}), 403) << origin;
        EXPECT_EQ(statusFor("POST", {{"host", host}, {"origin", origin}}), 403) << origin;
    }
    EXPECT_EQ(statusFor("POST", {{"host", host}, {"sec-fetch-site", "cross-site"}}), 403);
    EXPECT_EQ(statusFor("GET", {{"host", host}, {"sec-fetch-site", "same-site"}}), 403);
    EXPECT_EQ(statusFor("GET", {{"host", host}, {"sec-fetch-site", "cross-site"}, {"sec-fetch-mode", "navigate"}}), 200)
        << "a link to the page";

    const std::string cookie = std::string("tarvex_research_8123=") + token;
    const Pairs withCookie{{"cookie", cookie}, {"content-type", "application/json"}};
    EXPECT_EQ(request("POST", "/api/enrol", {}, withCookie, R"({"participant":"P01"})").status, 403)
        << "a change by cookie that does not say where it comes from";
}

TEST_F(ResearchPageTest, ServesItsFilesUnderAStrictPolicyAndNothingElse) {
    const std::vector<std::pair<std::string, std::string>> types{{"/", "text/html"},
                                                                 {"/page.css", "text/css"},
                                                                 {"/page.js", "text/javascript"},
                                                                 {"/grid.js", "text/javascript"},
                                                                 {"/uplot.js", "text/javascript"},
                                                                 {"/uplot-license.txt", "text/plain"}};
    for (const auto& [path, type] : types) {
        const Response response = get(path);
        EXPECT_EQ(response.status, 200) << path;
        EXPECT_THAT(response.contentType, HasSubstr(type));
        EXPECT_GT(response.body.size(), 500U) << path;
        EXPECT_EQ(fieldOf(response, "Content-Security-Policy"),
                  "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
                  "frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
        EXPECT_EQ(fieldOf(response, "X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(fieldOf(response, "Referrer-Policy"), "no-referrer");
        EXPECT_EQ(fieldOf(response, "Cache-Control"), "no-store");
    }
    EXPECT_EQ(fieldOf(request("GET", "/"), "Cache-Control"), "no-store") << "refusals as well";
    EXPECT_THAT(get("/").body, Not(MatchesRegex("(.|\n)*<script>(.|\n)*"))) << "no script within the page";
    EXPECT_THAT(get("/").body, Not(HasSubstr("<style")));
    for (const std::string path : {"/nowhere", "/../index.html", "/page.js/", "//", "/api/", "/api/study/", "/%2e%2e/",
                                   "/export/nothing.csv", "/export/../api/study"}) {
        EXPECT_EQ(get(path).status, 404) << path;
    }
    for (const auto& [path, allowed] :
         Pairs{{"/api/study", "GET"}, {"/", "GET"}, {"/page.js", "GET"}, {"/export/light.csv", "GET"}}) {
        const Response response = post(path, "{}");
        EXPECT_EQ(response.status, 405) << path;
        EXPECT_EQ(fieldOf(response, "Allow"), allowed);
    }
    EXPECT_EQ(get("/api/delete").status, 405);
    EXPECT_EQ(fieldOf(get("/api/delete"), "Allow"), "POST");
}

TEST_F(ResearchPageTest, TellsTheStudyInFigures) {
    study.audit.push_back({.time = now, .what = "exported everything from the command line"});
    const Json answer = study_();
    EXPECT_EQ(answer["now"], now);
    ASSERT_EQ(answer["participants"].size(), 24);
    ASSERT_EQ(answer["pen"].size(), 2);
    EXPECT_EQ(answer["pen"][0]["identifier"], "");
    const Participant& facts = study.people["P15"].facts;
    const auto found =
        std::ranges::find_if(answer["participants"], [](const Json& one) { return one["identifier"] == "P15"; });
    ASSERT_NE(found, answer["participants"].end());
    EXPECT_EQ(*found, (Json{{"identifier", "P15"},
                            {"application", facts.application},
                            {"device", facts.device},
                            {"firstContact", facts.firstContact},
                            {"lastContact", facts.lastContact},
                            {"documents", facts.documents},
                            {"repeats", facts.repeats},
                            {"unreadable", 17},
                            {"clockSkew", facts.clockSkew}}));
    EXPECT_EQ(answer["totals"]["enrolled"], 24);
    EXPECT_EQ(answer["totals"]["waiting"], 2);
    EXPECT_EQ(answer["totals"]["inContactWithinADay"], 23);
    std::size_t samples = 0;
    for (const auto& [identifier, person] : study.people)
        if (person.facts.isEnrolled) samples += person.light.size() + person.distances.size();
    EXPECT_EQ(answer["totals"]["recentSamples"], samples);
    EXPECT_EQ(answer["totals"]["repeats"], 4'211);
    EXPECT_EQ(answer["totals"]["unreadable"], 17);
    EXPECT_EQ(answer["unreadable"].size(), 17);
    EXPECT_EQ(answer["unreadable"][0]["received"], now - 4 * 3'600) << "the newest first";
    EXPECT_EQ(answer["audit"][0]["what"], "exported everything from the command line");
    EXPECT_TRUE(std::ranges::any_of(
        answer["participants"], [](const Json& one) { return one["identifier"] == SimulatedStudy::hostileMarkup; }));

    study.people["P01"].facts.clockSkew = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(study_()["participants"].size() == 24) << "a number that JSON cannot say";
}

TEST_F(ResearchPageTest, TellsDaysAndDecimatedSeries) {
    const Json days = Json::parse(get("/api/days").body);
    const Json& light = days["participants"]["P01"]["light"];
    ASSERT_EQ(light.size(), 21);
    EXPECT_EQ(light[10][1], 288) << "samples of a whole day, one each five minutes";
    EXPECT_EQ(days["until"], (std::floor(now / 86'400) + 1) * 86'400);
    EXPECT_FALSE(days["participants"].contains("P18"));
    const auto day = std::to_string(86'400LL * light[10][0].get<long long>());
    const Json one =
        Json::parse(get("/api/days", {{"from", day}, {"until", std::to_string(std::stoll(day) + 86'400)}}).body);
    EXPECT_EQ(one["participants"]["P01"]["light"].size(), 1);

    study.fillLight("P01", 1'000'000);
    const Json series =
        Json::parse(get("/api/series", {{"participant", "P01"}, {"column", "lux"}, {"buckets", "4000"}}).body);
    EXPECT_LE(series["buckets"].size(), 4'000);
    EXPECT_GT(series["buckets"].size(), 3'000);
    std::uint64_t samples = 0;
    for (const Json& bucket : series["buckets"]) {
        EXPECT_LE(bucket[1], bucket[2]);
        samples += bucket[3].get<std::uint64_t>();
    }
    EXPECT_EQ(samples, 1'000'000);
    EXPECT_EQ(
        Json::parse(
            get("/api/series", {{"participant", SimulatedStudy::hostileSql}, {"column", "leftEye"}}).body)["buckets"]
            .empty(),
        false);

    const Pairs good{{"participant", "P01"}, {"column", "lux"}, {"from", "0"}, {"until", "9"}, {"buckets", "10"}};
    EXPECT_EQ(get("/api/series", good).status, 200);
    for (const auto& [name, value] : Pairs{{"column", "luxury"},
                                           {"column", ""},
                                           {"buckets", "0"},
                                           {"buckets", "4001"},
                                           {"buckets", "1e3"},
                                           {"from", "9"},
                                           {"from", "nan"},
                                           {"until", "inf"},
                                           {"until", "1e99"},
                                           {"until", "9 or 1=1"}}) {
        Pairs query{{name, value}};
        for (const auto& pair : good)
            if (pair.first != name) query.push_back(pair);
        EXPECT_EQ(get("/api/series", query).status, 400) << name << "=" << value;
    }
    EXPECT_EQ(get("/api/series", {{"column", "lux"}}).status, 400) << "without a participant";
    EXPECT_EQ(get("/api/days", {{"from", "0"}, {"until", "99999999"}}).status, 400) << "three years";
}

TEST_F(ResearchPageTest, EnrolsAndDeletesWhatIsNamedInJson) {
    EXPECT_EQ(post("/api/enrol", R"({"participant":""})").status, 200);
    EXPECT_TRUE(study.people[""].facts.isEnrolled);
    EXPECT_EQ(post("/api/enrol", R"({"participant":"nobody"})").status, 404);
    const std::string name = Json(SimulatedStudy::hostileSql).dump();
    EXPECT_EQ(post("/api/delete", R"({"participant":)" + name + "}").status, 400);
    EXPECT_EQ(post("/api/delete", R"({"confirm":"P01","participant":)" + name + "}").status, 400);
    EXPECT_TRUE(study.people.contains(SimulatedStudy::hostileSql));
    const std::string body = R"({"confirm":)" + name + R"(,"participant":)" + name + "}";
    EXPECT_EQ(post("/api/delete", body).body, R"({"deleted":true})");
    EXPECT_FALSE(study.people.contains(SimulatedStudy::hostileSql));
    EXPECT_EQ(post("/api/delete", body).body, R"({"deleted":false})");
    EXPECT_EQ(study.people.size(), 25);

    for (const std::string& bad : std::vector<std::string>{"", "[]", "{", R"({"participant":7})",
                                                           R"({"participant":"P01)", "{\"participant\":\"\xff\"}",
                                                           std::string(10'000, '['), R"({"participant":"P01"} {})"}) {
        EXPECT_EQ(post("/api/enrol", bad).status, 400) << bad.substr(0, 40);
    }
    EXPECT_EQ(post("/api/enrol", R"({"participant":")" + std::string(70'000, 'x') + "\"}").status, 413);
    const Pairs asForm{{"content-type", "text/plain"}, {"authorization", std::string("Bearer ") + token}};
    EXPECT_EQ(request("POST", "/api/enrol", {}, asForm, R"({"participant":"P01"})").status, 415);
}

TEST_F(ResearchPageTest, NotesWhoIsLookedAtWithoutKeepingTheNameOfADeletedOne) {
    const Pairs ofOne{{"participant", "P08"}, {"column", "lux"}};
    for (int time = 0; time < 5; ++time)
        get("/api/series", ofOne);
    EXPECT_THAT(study.audit, SizeIs(1)) << "one look, zoomed";
    now += 700;
    get("/api/series", ofOne);
    get("/export/light.csv");
    EXPECT_EQ(get("/export/light.csv", {{"participant", "P08"}}).body, "participant,time\n");
    get("/export/nothing.csv", {{"participant", "P08"}});
    post("/api/enrol", R"({"participant":"visitor 7"})");
    const Json before = study_()["audit"];
    ASSERT_EQ(before.size(), 5);
    EXPECT_EQ(before[0]["participant"], "visitor 7");
    EXPECT_THAT(before[1]["what"], HasSubstr("exported light.csv of #"));
    EXPECT_EQ(before[1]["participant"], "P08");
    EXPECT_EQ(before[2]["what"], "exported light.csv");
    EXPECT_FALSE(before[2].contains("participant"));
    EXPECT_EQ(before[4]["participant"], "P08");

    post("/api/delete", R"({"participant":"P08","confirm":"P08"})");
    EXPECT_THAT(study.audit.back().what, MatchesRegex("deleted #[0-9a-f]{10}"));
    EXPECT_THAT(get("/api/study").body, Not(HasSubstr("P08"))) << "no trace of it";
}

TEST_F(ResearchPageTest, AnswersWithPatienceWhileTheStoreIsAway) {
    study_();
    study.isAvailable = false;
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(get("/api/study").status, 503);
    EXPECT_EQ(fieldOf(get("/api/days"), "Retry-After"), "60");
    EXPECT_EQ(get("/export/light.csv").status, 503) << "nothing is exported that cannot be noted";
    EXPECT_EQ(get("/").status, 200);
    study.isAvailable = true;
    EXPECT_EQ(get("/api/study").status, 200);
    get("/api/study");
    EXPECT_EQ(study.opened, 2) << "a store that failed is not used again, one that works is";
    std::vector<std::jthread> threads;
    std::atomic<int> answers = 0;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&] { answers += get("/api/study").status == 200 ? 1 : 0; });
    threads.clear();
    EXPECT_EQ(answers, 4);
}

}  // namespace
}  // namespace tarvex::collector
