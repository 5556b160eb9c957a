#include "doctor/report.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "tarvex/platform/json.h"

namespace tarvex::tool {
namespace {

std::string_view nameOf(Finding::State state) {
    static constexpr std::array<std::string_view, 3> names{"good", "note", "bad"};
    return names.at(static_cast<std::size_t>(state));
}

/// Every line of a remedy below the finding.
std::string indented(std::string_view text) {
    std::string lines = "      → ";
    for (const char letter : text) {
        lines += letter;
        if (letter == '\n') lines += "        ";
    }
    return lines + "\n";
}

}  // namespace

bool areAllGood(const Findings& findings) {
    return std::ranges::none_of(findings, [](const Finding& one) { return one.state == Finding::State::bad; });
}

std::string textOf(const Findings& findings) {
    std::string text;
    for (const auto& [what, state, detail, remedy] : findings) {
        text.append(nameOf(state)).append(nameOf(state).size() == 3 ? "   " : "  ");
        text.append(what).append(": ").append(detail).append("\n");
        if (!remedy.empty()) text += indented(remedy);
    }
    const auto toDo = std::ranges::count(findings, Finding::State::bad, &Finding::state);
    if (toDo == 0) return text + "\nNothing must be done.\n";
    return text + (toDo == 1 ? "\nOne thing must be done.\n" : "\n" + std::to_string(toDo) + " things must be done.\n");
}

std::string jsonOf(const Findings& findings) {
    platform::ByteBuffer text;
    text.append(areAllGood(findings) ? R"({"good":true,"findings":[)" : R"({"good":false,"findings":[)");
    for (std::string_view separator; const auto& [what, state, detail, remedy] : findings) {
        text.append(std::exchange(separator, ","));
        text.append(R"({"what":)");
        platform::appendJsonString(what, text);
        text.append(R"(,"state":)");
        platform::appendJsonString(nameOf(state), text);
        text.append(R"(,"detail":)");
        platform::appendJsonString(detail, text);
        text.append(R"(,"remedy":)");
        platform::appendJsonString(remedy, text);
        text.append("}");
    }
    text.append("]}\n");
    return std::string(text.view());
}

}  // namespace tarvex::tool
