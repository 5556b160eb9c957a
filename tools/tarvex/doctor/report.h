#pragma once

#include <string>

#include "doctor/finding.h"

namespace tarvex::tool {

/// True when nothing must be done.
bool areAllGood(const Findings& findings);

std::string textOf(const Findings& findings);

/// {"good": …, "findings": [{"what", "state": "good" | "note" | "bad", "detail", "remedy"}, …]}
std::string jsonOf(const Findings& findings);

}  // namespace tarvex::tool
