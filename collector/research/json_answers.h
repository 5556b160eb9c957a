#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "collector/http/server.h"
#include "collector/research/problems.h"
#include "collector/store/store.h"

namespace tarvex::collector {

/// Seconds between two samples of a signal, as the study asks for them; 0: nobody knows.
struct ExpectedIntervals {
    double light = 60;
    double distance = 60;
};

/// What the page shows at once.
struct StudyAnswer {
    double now;
    ExpectedIntervals expected;
    std::vector<Participant> participants;
    std::vector<DaySummary> days;  ///< the recent ones, for the sums
    std::vector<Problem> problems;
    std::vector<UnreadableRecord> unreadable;
    std::vector<AuditEntry> audit;
    /// As the audit names the participants: in their order.
    std::vector<std::string> marks;
};

// Numbers that JSON cannot say are null.

Response answerOf(const StudyAnswer& study);
/// Of each participant and signal, the days as [day, samples, least, greatest, seconds].
Response answerOf(const std::vector<DaySummary>& days, const TimeSpan& span);
/// The buckets as [time, least, greatest, samples].
Response answerOf(const std::vector<Bucket>& buckets, const TimeSpan& span);
/// An object with one member that is true or false.
Response answerOf(std::string_view name, bool value);
/// An object whose "error" is the sentence.
Response refusal(int status, std::string_view sentence);

}  // namespace tarvex::collector
