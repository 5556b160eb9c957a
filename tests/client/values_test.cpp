// The plain values of the public interface.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <unordered_set>

#include "tarvex/data_reader.h"
#include "tarvex/tarvex_error.h"

namespace tarvex {

TEST(DataReader, IsEqualInKindAndRateOnly) {
    const std::unordered_set<DataReader> distinct{DataReader::distance(std::nullopt),
                                                  DataReader::distance(0),
                                                  DataReader::distance(1),
                                                  DataReader::distance(2),
                                                  DataReader::ambientLight(0),
                                                  DataReader::ambientLight(std::nullopt),
                                                  DataReader::distance(1)};
    EXPECT_EQ(distinct.size(), 6U);
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
    struct Case {
        TarvexError error;
        int code;
        std::string description;
    };
    for (const Case& c :
         {Case{TarvexError::usageDescription("NSCameraUsageDescription"), 0,
               "NSCameraUsageDescription is not in the info.plist."},
          Case{TarvexError::usageDescription(""), 0, " is not in the info.plist."},
          Case{TarvexError::httpError("timed out"), 1, "HTTPError: timed out"},
          Case{TarvexError::httpError(""), 1, "HTTPError: "},
          Case{TarvexError::noConsentToTrack(), 2, "The user has to consent to the tracking."},
          Case{TarvexError::noViewToAttachForDistanceTracking(), 3,
               "Distance tracking could not be started because there is no view to attach to."},
          Case{TarvexError::distanceTrackingIsNotAvailable(), 4, "Distance tracking is not available on this device."},
          Case{TarvexError::lightTrackingIsNotAvailable(), 5, "Light tracking is not available on this device."},
          Case{TarvexError::noRefreshRate(), 6, "Please select a refresh rate for the reader."},
          Case{TarvexError::cannotLoadTrackingData(), 7, "Cannot load the tracking data."}}) {
        SCOPED_TRACE(c.description);
        EXPECT_EQ(c.error.errorDescription(), c.description);
        EXPECT_EQ(c.error.bridged().domain, "Tarvex.TarvexError");
        EXPECT_EQ(c.error.bridged().code, c.code);
        EXPECT_EQ(c.error.bridged().localizedDescription, c.description);
        EXPECT_FALSE(c.error.failureReason() || c.error.recoverySuggestion() || c.error.helpAnchor());
    }
}

}  // namespace tarvex
