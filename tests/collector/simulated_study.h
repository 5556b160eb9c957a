#pragma once

#include "collector/store/store.h"
#include "prelude.h"

namespace tarvex::collector::test {

/// A study of three weeks with 24 participants, and two who wait, kept in memory. Some things are wrong in it: P03 is
/// silent, P05's light stands still and P07's is 0, P09 and P10 have distances of no face, the clocks of P12 and P13
/// are wrong, P15 sent unreadable records, P16 repeats, P18 nothing but contact.
class SimulatedStudy {
public:
    static constexpr double now = 1'795'599'000;  ///< 2026-11-25 09:30 UTC
    static constexpr double interval = 300;       ///< seconds between two samples
    static constexpr auto hostileMarkup = "<img src=x onerror=\"document.title='taken over'\">";
    static constexpr auto hostileSql = "Robert'); DROP TABLE participants;--";
    struct Person {
        Participant facts;
        std::vector<AmbientLight> light;
        std::vector<Distance> distances;
    };

    SimulatedStudy();

    /// Valid as long as the study.
    std::unique_ptr<Store> open();
    /// Gives a participant so many samples of light within the three weeks.
    void fillLight(const std::string& participant, int count);

    std::map<std::string, Person> people;
    std::vector<UnreadableRecord> unreadable;
    std::vector<AuditEntry> audit;  ///< the newest last
    std::atomic<bool> isAvailable = true;
    int opened = 0;
    std::mutex mutex;  ///< guards everything above
};

}  // namespace tarvex::collector::test
