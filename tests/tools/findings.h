#pragma once

#include "doctor/finding.h"
#include "doctor/report.h"
#include "prelude.h"

namespace tarvex::tool {

/// "good: …" of the only finding about it; what was found where there is none, or several.
inline std::string found(const Findings& findings, const std::string& what) {
    const auto line = [](const Finding& one) {
        static constexpr std::array names{"good: ", "note: ", "bad: "};
        EXPECT_FALSE(one.state == Finding::State::bad && one.remedy.empty())
            << one.what << " is bad, and nothing helps";
        return names.at(static_cast<std::size_t>(one.state)) + one.detail + " | " + one.remedy;
    };
    const auto matches = [&](const Finding& one) { return one.what.starts_with(what); };
    if (std::ranges::count_if(findings, matches) == 1) return line(*std::ranges::find_if(findings, matches));
    return textOf(findings);
}

}  // namespace tarvex::tool
