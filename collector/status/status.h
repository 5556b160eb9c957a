#pragma once

#include <string>

#include "collector/store/store.h"

namespace tarvex::collector {

/// The figures of a study, read at once.
struct Status {
    std::vector<Participant> participants;
    double now = 0;  ///< by this machine's clock
};

/// Throws `StoreUnavailable`.
Status statusOf(Store& store);

std::string textOf(const Status& status);     ///< for a person, a line a participant
std::string jsonOf(const Status& status);     ///< one JSON object
std::string metricsOf(const Status& status);  ///< in Prometheus' text format

}  // namespace tarvex::collector
