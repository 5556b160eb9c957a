#include "light_documents.h"

#include <array>
#include <cstdio>
#include <numeric>
#include <random>
#include <span>
#include <string>

namespace tarvex::benchmarks {

using namespace collector;

void write(TemporaryFile& file, const std::vector<int>& order, double begin) {
    std::string text = R"({"trackingData":[)";
    std::minstd_rand random(7);
    bool isFirst = true;
    for (const int second : order) {
        // Values of their own second, whatever the order.
        random.seed(static_cast<unsigned>(second) + 1);
        const auto next = [&] { return static_cast<double>(random() % 100'000) / 16; };
        std::array<char, 256> record{};
        const int length = std::snprintf(
            record.data(), record.size(),
            R"(%s{"data":{"lux":%.17g,"channel0":%.17g,"channel1":%.17g,"channel2":%.17g,"channel3":%.17g},"type":"ambient_light","timestamp":%.6f})",
            isFirst ? "" : ",", next(), next(), next(), next(), next(), begin + second + 0.123456);
        text.append(record.data(), static_cast<std::size_t>(length));
        isFirst = false;
        if (text.size() < 65'536) continue;
        file.append(std::as_bytes(std::span(text)));
        text.clear();
    }
    text += R"(],"userId":"0d8f6a2e-one","device":"phone","applicationIdentifier":"org.example"})";
    file.append(std::as_bytes(std::span(text)));
}

std::vector<int> seconds(int count) {
    std::vector<int> order(static_cast<std::size_t>(count));
    std::iota(order.begin(), order.end(), 0);
    return order;
}

Body bodyOf(const TemporaryFile& file, std::uint8_t number) {
    Body body{.digest = {}, .bytes = file.size(), .received = 1'790'000'000};
    body.digest[0] = number;
    return body;
}

}  // namespace tarvex::benchmarks
