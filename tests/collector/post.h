#pragma once

#include "collector/store/store.h"
#include "prelude.h"

// What the tests of stores post, and what they find.
namespace tarvex::collector::behaviour {

inline constexpr double noon = 1'790'000'000;  // in September 2026
inline constexpr double never = -1e308;        // nothing has expired

/// A document whose body is as no other.
struct Post {
    explicit Post(const std::string& participant = "P-1") {
        static std::atomic<std::uint32_t> posts = 0;
        const std::uint32_t number = ++posts;
        body.digest = {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
                       static_cast<std::uint8_t>(number >> 16)};
        document.sender = {.participant = participant, .application = "study", .device = "laptop"};
    }

    Post& light(double time, double lux = 1) {
        document.light.push({.time = time, .lux = lux, .channels = {lux, 2, 3, 4}});
        return *this;
    }
    Post& distance(double time, double left = 50, double right = 51) {
        document.distances.push({.time = time, .leftEye = left, .rightEye = right});
        return *this;
    }
    Post& other(double time, const std::string& type, const std::string& values) {
        document.others.push({.time = time, .type = type, .values = values});
        return *this;
    }
    Receipt to(Store& store, double expired = never) const { return store.import(body, document, false, expired); }

    Body body{.digest = {}, .bytes = 1'000, .received = noon};
    Document document{std::filesystem::temp_directory_path()};
};

inline Post everySecond(int from, int until, const std::string& participant = "P-1") {
    Post post(participant);
    for (int second = from; second < until; ++second)
        post.light(noon + second, second).distance(noon + second);
    return post;
}

inline Selection selected(const std::optional<std::string>& participant, const TimeSpan& time = {}) {
    return {.participant = participant, .time = time, .includesPen = true};
}
inline Selection enrolled(const std::optional<std::string>& participant = std::nullopt) {
    return {.participant = participant, .time = {}, .includesPen = false};
}

struct Contents {
    std::vector<AmbientLight> light;
    std::vector<Distance> distances;
    std::vector<OtherSample> others;

    std::size_t size() const { return light.size() + distances.size() + others.size(); }
};

/// Checks the order as well, and that nothing is there twice.
inline Contents contentsOf(Store& store, const Selection& selection = selected(std::nullopt)) {
    Contents contents;
    std::vector<std::pair<std::string, double>> order;
    const auto keep = [&](auto& samples) {
        order.clear();
        return [&](const std::string& participant, const auto& sample) {
            order.emplace_back(participant, sample.time);
            EXPECT_TRUE(order.size() < 2 || order[order.size() - 2] <= order.back());
            samples.push_back(sample);
        };
    };
    store.visitLight(selection, keep(contents.light));
    store.visitDistances(selection, keep(contents.distances));
    store.visitOthers(selection, keep(contents.others));
    return contents;
}

inline std::vector<std::uint64_t> numbersOf(const Receipt& receipt) {
    return {receipt.samples, receipt.fresh, receipt.isRepeat ? 1UL : 0UL};
}

}  // namespace tarvex::collector::behaviour
