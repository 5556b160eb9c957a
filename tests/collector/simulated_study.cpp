#include "simulated_study.h"

namespace tarvex::collector::test {
namespace {

constexpr double day = 86'400;
constexpr double noSkew = -40;

/// The same for the same time and person, between -1 and 1.
double noise(double time, std::size_t person) {
    const double value = std::sin(time * 0.0137 + static_cast<double>(person) * 7.1) * 43'758.5453;
    return 2 * (value - std::floor(value)) - 1;
}

AmbientLight lightAt(double time, std::size_t person) {
    const double hour = std::fmod(time, day) / 3'600;
    const double sun = std::max(0.0, std::sin((hour - 6) / 12 * std::numbers::pi));
    const double lamp = hour > 17 && hour < 23 ? 120 : 0.4;
    const double lux = std::round((sun * 2'400 + lamp) * std::exp(0.8 * noise(time, person)) * 10) / 10;
    return {.time = time, .lux = lux, .channels = {lux, lux / 2, lux / 3, lux / 4}};
}

Distance distanceAt(double time, std::size_t person) {
    const double left = 42 + 3 * static_cast<double>(person % 5) + 8 * std::sin(time / 5'000) + 4 * noise(time, person);
    return {.time = time, .leftEye = left, .rightEye = left + 1.5 + noise(time + 1, person)};
}

SimulatedStudy::Person personOf(std::size_t number, const std::string& identifier, double first, double last) {
    SimulatedStudy::Person person{.facts = {.identifier = identifier,
                                            .application = "Light Study 1.4",
                                            .device = number % 3 == 0 ? "Debian tablet" : "Linux phone",
                                            .firstContact = first,
                                            .lastContact = last,
                                            .documents = static_cast<std::uint64_t>((last - first) / 7'200) + 1,
                                            .clockSkew = noSkew},
                                  .light = {},
                                  .distances = {}};
    for (double time = first; time < last + noSkew; time += SimulatedStudy::interval) {
        person.light.push_back(lightAt(time, number));
        const double hour = std::fmod(time, day) / 3'600;
        if (hour > 7 && hour < 22) person.distances.push_back(distanceAt(time, number));
    }
    return person;
}

class SimulatedStore : public Store {
public:
    explicit SimulatedStore(SimulatedStudy& study) : study_(study) {}

    std::vector<Participant> participants() override {
        const auto guard = enter();
        std::vector<Participant> all;
        for (const auto& [identifier, person] : study_.people)
            all.push_back(person.facts);
        return all;
    }

    std::vector<DaySummary> days(const TimeSpan& span) override {
        const auto guard = enter();
        std::vector<DaySummary> all;
        for (const auto& [identifier, person] : study_.people) {
            summarise(all, span, identifier, Signal::light, person.light,
                      [](const AmbientLight& sample) { return std::pair(sample.lux, sample.lux); });
            summarise(all, span, identifier, Signal::distance, person.distances,
                      [](const Distance& sample) { return std::minmax(sample.leftEye, sample.rightEye); });
        }
        return all;
    }

    std::vector<Bucket> series(const std::string& participant, Column column, const TimeSpan& span,
                               int buckets) override {
        const auto guard = enter();
        std::vector<Bucket> found;
        const auto person = study_.people.find(participant);
        if (person == study_.people.end()) return found;
        if (column == Column::lux) {
            fill(found, span, buckets, person->second.light, &AmbientLight::lux);
        } else {
            fill(found, span, buckets, person->second.distances,
                 column == Column::leftEye ? &Distance::leftEye : &Distance::rightEye);
        }
        return found;
    }

    std::vector<UnreadableRecord> unreadable(int most) override {
        const auto guard = enter();
        return newest(study_.unreadable, most);
    }

    std::vector<AuditEntry> audit(int most) override {
        const auto guard = enter();
        return newest(study_.audit, most);
    }

    bool enrol(const std::string& participant) override {
        const auto guard = enter();
        const auto person = study_.people.find(participant);
        if (person == study_.people.end()) return false;
        person->second.facts.isEnrolled = true;
        return true;
    }

    bool erase(const std::string& participant) override {
        const auto guard = enter();
        return study_.people.erase(participant) > 0;
    }

    void note(const AuditEntry& entry) override {
        const auto guard = enter();
        study_.audit.push_back(entry);
    }

    // What the page has no use for
    std::optional<Receipt> countRepeat(const Body&) override { throw std::logic_error("not simulated"); }
    Receipt import(const Body&, const Document&, bool, double) override { throw std::logic_error("not simulated"); }
    std::uint64_t expire(double) override { throw std::logic_error("not simulated"); }
    void visitLight(const Selection&, const std::function<void(const std::string&, const AmbientLight&)>&) override {
        throw std::logic_error("not simulated");
    }
    void visitDistances(const Selection&, const std::function<void(const std::string&, const Distance&)>&) override {
        throw std::logic_error("not simulated");
    }
    void visitOthers(const Selection&, const std::function<void(const std::string&, const OtherSample&)>&) override {
        throw std::logic_error("not simulated");
    }

private:
    std::unique_lock<std::mutex> enter() {
        if (!study_.isAvailable) throw StoreUnavailable("the study is not available");
        return std::unique_lock(study_.mutex);
    }

    template <typename Entry>
    static std::vector<Entry> newest(const std::vector<Entry>& entries, int most) {
        const auto count = std::min(entries.size(), static_cast<std::size_t>(most));
        return {entries.rbegin(), entries.rbegin() + static_cast<std::ptrdiff_t>(count)};
    }

    template <typename Sample>
    static void summarise(std::vector<DaySummary>& all, const TimeSpan& span, const std::string& participant,
                          Signal signal, const std::vector<Sample>& samples, auto range) {
        double first = 0;
        for (const Sample& sample : samples) {
            if (sample.time < span.from || sample.time >= span.until) continue;
            const auto number = static_cast<std::int64_t>(std::floor(sample.time / day));
            const auto [least, greatest] = range(sample);
            const bool isSame = !all.empty() && all.back().day == number && all.back().participant == participant &&
                                all.back().signal == signal;
            if (!isSame) {
                first = sample.time;
                all.push_back({participant, signal, number, 0, least, greatest, 0});
            }
            DaySummary& summary = all.back();
            ++summary.samples;
            summary.least = std::min(summary.least, least);
            summary.greatest = std::max(summary.greatest, greatest);
            summary.seconds = static_cast<std::uint64_t>(sample.time - first);
        }
    }

    template <typename Sample>
    static void fill(std::vector<Bucket>& found, const TimeSpan& span, int buckets, const std::vector<Sample>& samples,
                     double Sample::* value) {
        const double width = (span.until - span.from) / buckets;
        for (const Sample& sample : samples) {
            if (sample.time < span.from || sample.time >= span.until) continue;
            const double start = span.from + std::floor((sample.time - span.from) / width) * width;
            if (found.empty() || found.back().time < start) found.push_back({start, sample.*value, sample.*value, 0});
            Bucket& bucket = found.back();
            bucket.least = std::min(bucket.least, sample.*value);
            bucket.greatest = std::max(bucket.greatest, sample.*value);
            ++bucket.samples;
        }
    }

    SimulatedStudy& study_;
};

}  // namespace

SimulatedStudy::SimulatedStudy() {
    const double start = now - 20.3 * day;
    const auto name = [](std::size_t number) {
        if (number == 23) return std::string(hostileMarkup);
        if (number == 24) return std::string(hostileSql);
        return (number < 10 ? "P0" : "P") + std::to_string(number);
    };
    for (std::size_t number = 1; number <= 24; ++number) {
        const double first = number == 20 ? now - 8 * day : start + static_cast<double>(number) * 1'700;
        const double last = number == 3 ? now - 5.2 * day : now - 400 * static_cast<double>(number);
        people[name(number)] = personOf(number, name(number), first, last);
    }
    const auto lightSince = [this](const std::string& who, double days, double lux) {
        for (AmbientLight& sample : people[who].light)
            if (sample.time > now - days * day) sample.lux = lux;
    };
    lightSince("P05", 3.5, 312);
    lightSince("P07", 4.5, 0);
    for (Distance& sample : people["P09"].distances)
        if (std::fmod(sample.time, 40 * interval) < interval && sample.time > now - 2.2 * day) sample.leftEye = 3.2;
    people["P10"].distances.at(3'500).rightEye = 412;
    people["P12"].facts.clockSkew = 2.6 * 3'600;
    people["P13"].facts.clockSkew = -95 * 60;
    people["P15"].facts.unreadable = 17;
    people["P16"].facts.repeats = 4'211;
    people["P18"].light.clear();
    people["P18"].distances.clear();
    const auto isThinned = [](const AmbientLight& sample) { return std::fmod(sample.time, 2 * interval) >= interval; };
    std::erase_if(people["P19"].light, isThinned);
    std::erase_if(people["P21"].light, [](const AmbientLight& sample) {
        return sample.time > now - 12 * day && sample.time < now - 8 * day;
    });
    for (const std::string waiting : {"", "visitor 7"}) {
        people[waiting] = personOf(25, waiting, now - day / 2, now - 1'200);
        people[waiting].facts.isEnrolled = false;
    }
    for (int count = 0; count < 17; ++count)
        unreadable.push_back({.participant = "P15",
                              .received = now - 3'600.0 * (20 - count),
                              .reason = "The time is not a number.",
                              .excerpt = R"({"time":"yesterday","lux":<b>12</b>})"});
}

std::unique_ptr<Store> SimulatedStudy::open() {
    if (!isAvailable) throw StoreUnavailable("the study is not available");
    const std::lock_guard guard(mutex);
    ++opened;
    return std::make_unique<SimulatedStore>(*this);
}

void SimulatedStudy::fillLight(const std::string& participant, int count) {
    const std::lock_guard guard(mutex);
    std::vector<AmbientLight>& light = people.at(participant).light;
    light.clear();
    for (int sample = 0; sample < count; ++sample)
        light.push_back(lightAt(now - 20.3 * day + 20.3 * day * sample / count, 1));
}

}  // namespace tarvex::collector::test
