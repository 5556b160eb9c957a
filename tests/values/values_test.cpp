// The plain values of the public interface, and the view for hosts without a screen.

#include <unordered_set>

#include "prelude.h"
#include "tarvex/data_reader.h"
#include "tarvex/tarvex_error.h"
#include "tarvex/view.h"

namespace tarvex {

TEST(DataReader, IsEqualInKindAndRateOnly) {
    const auto distance = &DataReader::distance;
    const auto light = &DataReader::ambientLight;
    const std::unordered_set<DataReader> distinct{distance(std::nullopt), distance(0), distance(1), distance(1),
                                                  light(std::nullopt),    light(0)};
    EXPECT_THAT(distinct, SizeIs(5));
    EXPECT_EQ(DataReader::distance(5).kindKey(), DataReader::distance(std::nullopt));
    EXPECT_NE(DataReader::distance(5).kindKey(), DataReader::distance(0));
    EXPECT_EQ(std::hash<DataReader>{}(DataReader::distance(7)), std::hash<DataReader>{}(DataReader::distance(7)));
}

TEST(DataReader, IsNamedByItsKind) {
    for (const auto rate : {std::optional<std::int64_t>(), std::optional<std::int64_t>(-3)}) {
        EXPECT_EQ(DataReader::distance(rate).id(), "distance");
        EXPECT_EQ(DataReader::distance(rate).description(), "Distance");
        EXPECT_EQ(DataReader::ambientLight(rate).id(), "ambient_light");
        EXPECT_EQ(DataReader::ambientLight(rate).description(), "Ambient Light");
    }
}

TEST(TarvexError, DescribesEveryCaseAndBridgesItsCode) {
    using Case = std::tuple<TarvexError, int, std::string>;
    for (const auto& [error, code, description] :
         {Case{TarvexError::usageDescription("NSCameraUsageDescription"), 0,
               "NSCameraUsageDescription is not in the info.plist."},
          Case{TarvexError::httpError("timed out"), 1, "HTTPError: timed out"},
          Case{TarvexError::noConsentToTrack(), 2, "The user has to consent to the tracking."},
          Case{TarvexError::noViewToAttachForDistanceTracking(), 3,
               "Distance tracking could not be started because there is no view to attach to."},
          Case{TarvexError::distanceTrackingIsNotAvailable(), 4, "Distance tracking is not available on this device."},
          Case{TarvexError::lightTrackingIsNotAvailable(), 5, "Light tracking is not available on this device."},
          Case{TarvexError::noRefreshRate(), 6, "Please select a refresh rate for the reader."},
          Case{TarvexError::cannotLoadTrackingData(), 7, "Cannot load the tracking data."}}) {
        EXPECT_EQ(error.errorDescription(), description);
        EXPECT_EQ(error.bridged().domain, "Tarvex.TarvexError");
        EXPECT_EQ(error.bridged().code, code) << description;
        EXPECT_EQ(error.bridged().localizedDescription, description);
        EXPECT_FALSE(error.failureReason() || error.recoverySuggestion() || error.helpAnchor());
    }
}

TEST(View, HasOneParentAndIsNeverItsOwn) {
    const auto first = makeHeadlessView();
    const auto second = makeHeadlessView();
    const auto child = makeHeadlessView();
    const auto other = makeHeadlessView();
    using Views = std::vector<std::pair<std::shared_ptr<View>, std::shared_ptr<View>>>;
    for (const auto& [parent, added] : Views{{first, child},
                                             {second, child},
                                             {second, other},
                                             {second, child},
                                             {first, second},
                                             {child, first},
                                             {child, second},
                                             {child, child},
                                             {child, nullptr}})
        parent->addSubview(added);
    EXPECT_THAT(first->subviews(), ElementsAre(second));
    EXPECT_THAT(second->subviews(), ElementsAre(other, child));
    EXPECT_THAT(child->subviews(), IsEmpty());
    makeHeadlessView()->addSubview(other);
    first->addSubview(other);
    EXPECT_THAT(first->subviews(), ElementsAre(second, other)) << "the parent between is gone";
}

}  // namespace tarvex
