#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "collector/http/server.h"
#include "collector/store/store.h"

namespace tarvex::collector {

/// Answers a GET below /export/: `light`, `distance` and `other` as `.csv` or `.jsonl` (parameters `participant`,
/// `from`, `until`), `dictionary.csv`, and `participant.zip` (parameter `participant`). Absent for another path. `open`
/// opens a store for the calling thread.
std::optional<Response> answerExport(const RequestHead& head, const std::function<std::unique_ptr<Store>()>& open);

}  // namespace tarvex::collector
