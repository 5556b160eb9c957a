#pragma once

#include <string_view>

#include "tarvex/data_reader.h"

namespace tarvex {

/// The user-defaults key of the flag that says that the user has consented to a kind of reader. Only true is ever
/// stored under it.
constexpr std::string_view consentKey(DataReader::Kind kind) {
    return kind == DataReader::Kind::distance ? "hasConsentedToTrackDistance" : "hasConsentedToTrackAmbientLight";
}

}  // namespace tarvex
