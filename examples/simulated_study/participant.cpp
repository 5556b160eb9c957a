#include "participant.h"

#include <tarvex/client.h>
#include <tarvex/platform/platform.h>

#include <cmath>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <variant>
#include <vector>

#include "daily_life.h"
#include "habits.h"
#include "noise.h"
#include "simulated_device.h"

namespace simulated_study {

namespace {

using tarvex::Client;
using tarvex::DataReader;

constexpr int lightInterval = 10 * 60;  // in seconds, as all that follows
constexpr int distanceInterval = 20 * 60;
constexpr double hour = 60 * 60;
constexpr double day = 24 * hour;
const std::vector readers{DataReader::ambientLight(lightInterval), DataReader::distance(distanceInterval)};

/// How long the participant takes part.
double lengthOf(const Assignment& assignment) {
    return assignment.days * day * (faultOf(assignment.participant) == Fault::stopsEarly ? 3.0 / 7 : 1.0);
}

double elevenOClockOf(double time) {
    return time + (11 - momentAt(time).hour) * hour;
}

class Participant {
public:
    explicit Participant(const Assignment& assignment)
        : assignment_(assignment),
          habits_(habitsOf(assignment.participant, assignment.seed)),
          fault_(faultOf(assignment.participant)),
          dailyLife_(assignment.participant, assignment.seed),
          lateness_(assignment.seed, static_cast<std::uint64_t>(assignment.participant) * 100 + 1099),
          device_(assignment.dataDirectory, assignment.collectorDirectory) {}

    Outcome live() {
        consent();
        start();
        const double begins = assignment_.ends - assignment_.days * day;
        if (fault_ == Fault::stuckSensor) device_.show(dailyLife_.lightAt(elevenOClockOf(begins)));
        const auto ticks = std::llround(lengthOf(assignment_)) / lightInterval;
        for (std::int64_t tick = 1; tick <= ticks; ++tick) {
            const double time = begins + static_cast<double>(tick * lightInterval);
            sample(time);
            if (tick < ticks && postsWithin(time - lightInterval, time)) post();
        }
        Client::shared().stopTracking();
        post();
        return outcome();
    }

private:
    void consent() {
        std::optional<bool> decision;
        const auto screen = Client::shared()
                                .informationView(std::nullopt, "A simulated study.", readers, std::nullopt,
                                                 [&decision](bool consented) { decision = consented; })
                                .body();
        const auto& elements = std::get<tarvex::ui::VStack>(screen.content).children;
        std::get<tarvex::ui::Button>(elements.back().content).action();  // "I consent"
        device_.allowCamera();
        if (!decision.value_or(false)) throw std::runtime_error("The consent was not given.");
    }

    void start() {
        std::string failure;
        Client::shared().startTracking(readers, tarvex::makeHeadlessView(), [&](const auto& result, const auto&) {
            if (!result) failure = result.error().errorDescription().value_or("");
        });
        if (!failure.empty()) throw std::runtime_error("The tracking did not start: " + failure);
    }

    // Timers are some milliseconds late.
    void sample(double time) {
        const auto second = static_cast<std::int64_t>(time);
        const double shown = time + (fault_ == Fault::clockAhead ? day : 0);
        device_.setClock(shown + lateness_.at(second, 0.0005, 0.02));
        if (fault_ != Fault::stuckSensor) device_.show(dailyLife_.lightAt(time));
        device_.pass(lightInterval);
        ++taken_;
        if (!device_.isMeasuring()) return;
        if (const auto eyes = dailyLife_.eyesAt(time)) {
            device_.setClock(shown + lateness_.at(-second, 0.4, 1.4));
            device_.show(*eyes);
            ++taken_;
        }
        device_.endMeasurement();
    }

    bool postsWithin(double from, double until) const {
        const auto posts = [this](double time) {
            return std::floor((time / hour - habits_.hourOfPosts) / 24 / habits_.daysBetweenPosts);
        };
        return posts(from) != posts(until);
    }

    void post() {
        using namespace std::chrono_literals;
        const bool deletes = fault_ != Fault::neverDeletes;
        const std::int64_t stored = Client::shared().trackingDataCount();
        const auto answer = std::make_shared<std::promise<Client::Result>>();
        Client::shared().shareTrackingData(deletes, [answer](const auto& result) { answer->set_value(result); });
        auto answered = answer->get_future();
        if (answered.wait_for(60s) != std::future_status::ready) throw std::runtime_error("A post was not answered.");
        if (const auto result = answered.get(); !result)
            throw std::runtime_error("A post failed: " + result.error().errorDescription().value_or(""));
        ++posts_;
        posted_ += stored;
        if (Client::shared().trackingDataCount() != (deletes ? 0 : stored))
            throw std::runtime_error("A post left another number of samples in the store than expected.");
        lastPost_ = stored;
    }

    Outcome outcome() const {
        const std::int64_t kept = fault_ == Fault::neverDeletes ? lastPost_ : posted_;
        if (kept != taken_)
            throw std::runtime_error("Of " + std::to_string(taken_) + " samples, the store had " +
                                     std::to_string(kept) + ".");
        const auto& defaults = tarvex::platform::Platform::current().userDefaults();
        return {.identifier = defaults.stringForKey("userID").value_or(""),
                .samples = taken_,
                .posts = posts_,
                .postedSamples = posted_};
    }

    Assignment assignment_;
    Habits habits_;
    Fault fault_;
    DailyLife dailyLife_;
    Noise lateness_;
    SimulatedDevice device_;
    std::int64_t taken_ = 0;
    std::int64_t posts_ = 0;
    std::int64_t posted_ = 0;
    std::int64_t lastPost_ = 0;
};

}  // namespace

Outcome takePart(const Assignment& assignment) {
    return Participant(assignment).live();
}

}  // namespace simulated_study
