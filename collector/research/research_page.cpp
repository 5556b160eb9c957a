#include "collector/research/research_page.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <exception>
#include <expected>
#include <string_view>
#include <utility>

#include "collector/research/static_files.h"
#include "collector/status/status.h"

namespace tarvex::collector {
namespace {

constexpr double secondsOfDay = 86'400;
constexpr int recentDays = 21;
constexpr double mostDays = 400;
constexpr int mostBuckets = 4'000;
constexpr int mostRows = 50;
constexpr double farTime = 1e11;
constexpr std::size_t mostBytes = 64UL * 1024;
constexpr double secondsBetweenLooks = 600;

constexpr std::string_view policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
    "frame-ancestors 'none'; base-uri 'none'; form-action 'none'";

std::optional<std::string> parameter(const RequestHead& head, std::string_view name) {
    for (const auto& [key, value] : head.query)
        if (key == name) return value;
    return std::nullopt;
}

/// Absent when the parameter is no such number, and `otherwise` without the parameter.
template <typename Number>
std::optional<Number> numberOf(const RequestHead& head, std::string_view name, Number otherwise) {
    const std::optional<std::string> text = parameter(head, name);
    if (!text) return otherwise;
    Number number{};
    const char* end = text->data() + text->size();
    const auto result = std::from_chars(text->data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

std::optional<TimeSpan> spanOf(const RequestHead& head, const TimeSpan& otherwise) {
    const auto from = numberOf(head, "from", otherwise.from);
    const auto until = numberOf(head, "until", otherwise.until);
    if (!from || !until || !(std::abs(*from) < farTime) || !(std::abs(*until) < farTime) || *from >= *until)
        return std::nullopt;
    return TimeSpan{.from = *from, .until = *until};
}

TimeSpan recentSpan(double now) {
    const double tomorrow = (std::floor(now / secondsOfDay) + 1) * secondsOfDay;
    return {.from = tomorrow - recentDays * secondsOfDay, .until = tomorrow};
}

std::optional<Column> columnOf(std::string_view name) {
    if (name == "lux") return Column::lux;
    if (name == "leftEye") return Column::leftEye;
    if (name == "rightEye") return Column::rightEye;
    return std::nullopt;
}

/// Takes a JSON object all of whose members are texts, and nothing else.
class Texts : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Texts> {
public:
    bool Default() { return false; }
    bool StartObject() { return !std::exchange(isOpen_, true); }
    bool EndObject(rapidjson::SizeType) { return true; }
    bool Key(const char* text, rapidjson::SizeType size, bool) {
        key_.assign(text, size);
        return true;
    }
    bool String(const char* text, rapidjson::SizeType size, bool) {
        return isOpen_ && texts.emplace(key_, std::string(text, size)).second;
    }

    std::map<std::string, std::string> texts;

private:
    std::string key_;
    bool isOpen_ = false;
};

bool isJson(const RequestHead& head) {
    std::string_view type = head.field("content-type");
    type = type.substr(0, type.find(';'));
    while (type.ends_with(' '))
        type.remove_suffix(1);
    return type == "application/json";
}

/// A request for a change: the participant, and what confirms it.
struct Change {
    std::string participant;
    std::optional<std::string> confirm;
};

std::expected<Change, Response> changeOf(const RequestHead& head, const std::string& body) {
    if (!isJson(head)) return std::unexpected(refusal(415, "A change is sent as application/json."));
    if (body.size() > mostBytes) return std::unexpected(refusal(413, "This is too long."));
    constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
    rapidjson::MemoryStream memory(body.data(), body.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(memory);
    rapidjson::Reader reader;
    Texts handler;
    const bool isRead = static_cast<bool>(reader.Parse<flags>(stream, handler));
    const auto participant = handler.texts.find("participant");
    if (!isRead || participant == handler.texts.end())
        return std::unexpected(refusal(400, "A change is a JSON object that names the participant."));
    const auto confirm = handler.texts.find("confirm");
    return Change{.participant = participant->second,
                  .confirm = confirm == handler.texts.end() ? std::nullopt : std::optional(confirm->second)};
}

}  // namespace

/// A store for the length of a request; given back after one that went well.
class ResearchPage::BorrowedStore {
public:
    explicit BorrowedStore(ResearchPage& page) : page_(page) {
        {
            const std::lock_guard guard(page.mutex_);
            if (!page.idleStores_.empty()) {
                store_ = std::move(page.idleStores_.back());
                page.idleStores_.pop_back();
            }
        }
        if (!store_) store_ = page.options_.open();
    }
    ~BorrowedStore() {
        if (std::uncaught_exceptions() > exceptions_) return;
        const std::lock_guard guard(page_.mutex_);
        page_.idleStores_.push_back(std::move(store_));
    }
    BorrowedStore(const BorrowedStore&) = delete;
    BorrowedStore& operator=(const BorrowedStore&) = delete;

    Store& operator*() const { return *store_; }
    Store* operator->() const { return store_.get(); }

private:
    ResearchPage& page_;
    std::unique_ptr<Store> store_;
    int exceptions_ = std::uncaught_exceptions();
};

struct ResearchPage::Route {
    std::string_view method;
    std::string_view path;
    Response (ResearchPage::*answer)(const RequestHead&, const std::string&);
};

const std::vector<ResearchPage::Route>& ResearchPage::routes() {
    static const std::vector<Route> routes{
        {"GET", "/api/study", &ResearchPage::showStudy},   {"GET", "/api/days", &ResearchPage::showDays},
        {"GET", "/api/series", &ResearchPage::showSeries}, {"POST", "/api/enrol", &ResearchPage::enrol},
        {"POST", "/api/delete", &ResearchPage::erase},     {"GET", "/metrics", &ResearchPage::showMetrics},
    };
    return routes;
}

ResearchPage::ResearchPage(Options options) : options_(std::move(options)), access_(options_.access) {}

ResearchPage::~ResearchPage() = default;

Response ResearchPage::answer(const RequestHead& head, const std::string& body) {
    Response response;
    try {
        const std::optional<Response> screened = access_.screen(head);
        response = screened ? *screened : route(head, body);
    } catch (const StoreUnavailable&) {
        response = refusal(503, "The store is not available now; try again in a minute.");
        response.fields.emplace_back("Retry-After", "60");
    }
    for (const auto& [name, value] : std::array<std::pair<const char*, std::string_view>, 5>{{
             {"Content-Security-Policy", policy},
             {"X-Content-Type-Options", "nosniff"},
             {"Referrer-Policy", "no-referrer"},
             {"Cross-Origin-Resource-Policy", "same-origin"},
             {"Cache-Control", "no-store"},
         }})
        response.fields.emplace_back(name, value);
    return response;
}

Response ResearchPage::route(const RequestHead& head, const std::string& body) {
    const std::optional<StaticFile> file = staticFile(head.path);
    const bool isExport = head.path.starts_with("/export/") && options_.exports;
    std::string_view allowed = file || isExport ? "GET" : "";
    for (const Route& route : routes()) {
        if (route.path != head.path) continue;
        if (route.method == head.method) return (this->*route.answer)(head, body);
        allowed = route.method;
    }
    if (allowed.empty()) return refusal(404, "There is no such page.");
    if (head.method != allowed) {
        Response response = refusal(405, "This address takes another method.");
        response.fields.emplace_back("Allow", allowed);
        return response;
    }
    return file ? Response{.contentType = std::string(file->contentType), .body = std::string(file->contents)}
                : exportFile(head);
}

Response ResearchPage::showMetrics(const RequestHead&, const std::string&) {
    const BorrowedStore store(*this);
    return {.contentType = "text/plain; version=0.0.4; charset=utf-8", .body = metricsOf(statusOf(*store))};
}

Response ResearchPage::showStudy(const RequestHead&, const std::string&) {
    const BorrowedStore store(*this);
    const double now = options_.now();
    StudyAnswer study{.now = now,
                      .expected = options_.expected,
                      .participants = store->participants(),
                      .days = store->days(recentSpan(now)),
                      .problems = {},
                      .unreadable = store->unreadable(mostRows),
                      .audit = store->audit(mostRows),
                      .marks = {}};
    study.problems = findProblems(study.participants, study.days, recentDays, now, options_.limits);
    for (const Participant& participant : study.participants)
        study.marks.push_back(markOf(participant.identifier));
    return answerOf(study);
}

Response ResearchPage::showDays(const RequestHead& head, const std::string&) {
    const std::optional<TimeSpan> span = spanOf(head, recentSpan(options_.now()));
    if (!span || span->until - span->from > mostDays * secondsOfDay)
        return refusal(400, "The days go from one time until a later one, 400 days at most.");
    const BorrowedStore store(*this);
    return answerOf(store->days(*span), *span);
}

Response ResearchPage::showSeries(const RequestHead& head, const std::string&) {
    const std::optional<std::string> participant = parameter(head, "participant");
    const std::optional<Column> column = columnOf(head.parameter("column"));
    const std::optional<TimeSpan> span = spanOf(head, recentSpan(options_.now()));
    const std::optional<int> buckets = numberOf(head, "buckets", mostBuckets);
    if (!participant || !column || !span || !buckets || *buckets < 1 || *buckets > mostBuckets)
        return refusal(400,
                       "A series has a participant, a column (lux, leftEye, rightEye), a span and 1 to 4000 buckets.");
    const BorrowedStore store(*this);
    noteLook(*store, *participant);
    return answerOf(store->series(*participant, *column, *span, *buckets), *span);
}

Response ResearchPage::enrol(const RequestHead& head, const std::string& body) {
    const std::expected<Change, Response> change = changeOf(head, body);
    if (!change) return change.error();
    const BorrowedStore store(*this);
    if (!store->enrol(change->participant)) return refusal(404, "Nothing has come from this participant.");
    note(*store, "enrolled " + markOf(change->participant));
    return answerOf("enrolled", true);
}

Response ResearchPage::erase(const RequestHead& head, const std::string& body) {
    const std::expected<Change, Response> change = changeOf(head, body);
    if (!change) return change.error();
    if (change->confirm != change->participant)
        return refusal(400, "To delete a participant, “confirm” has to repeat the identifier.");
    const BorrowedStore store(*this);
    // Noted first: a deletion that nobody can account for would be the worse.
    note(*store, "deleted " + markOf(change->participant));
    return answerOf("deleted", store->erase(change->participant));
}

Response ResearchPage::exportFile(const RequestHead& head) {
    std::optional<Response> response = options_.exports(head);
    if (!response) return refusal(404, "There is no such export.");
    if (response->status != 200) return *response;
    const std::optional<std::string> participant = parameter(head, "participant");
    const BorrowedStore store(*this);
    note(*store,
         "exported " + head.path.substr(head.path.rfind('/') + 1) + (participant ? " of " + markOf(*participant) : ""));
    return *std::move(response);
}

std::string ResearchPage::markOf(const std::string& participant) const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    const std::string& key = options_.access.token;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(participant.data()), participant.size(), digest.data(), nullptr);
    std::string mark = "#";
    for (std::size_t place = 0; place < 5; ++place)
        for (const int half : {digest.at(place) >> 4, digest.at(place) & 15})
            mark += "0123456789abcdef"[half];
    return mark;
}

void ResearchPage::note(Store& store, const std::string& what) const {
    store.note({.time = options_.now(), .what = what});
}

// A look at three signals, zoomed in and out, is one look.
void ResearchPage::noteLook(Store& store, const std::string& participant) {
    const double now = options_.now();
    {
        const std::lock_guard guard(mutex_);
        std::erase_if(looks_, [now](const auto& look) { return now - look.second >= secondsBetweenLooks; });
        if (looks_.contains(participant)) return;
    }
    note(store, "looked at " + markOf(participant));
    const std::lock_guard guard(mutex_);
    looks_[participant] = now;
}

}  // namespace tarvex::collector
