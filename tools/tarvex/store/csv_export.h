#pragma once

#include <cstdint>
#include <expected>
#include <string>

#include "store/snapshot.h"

namespace tarvex::tool {

struct CsvExport {
    std::string text;
    std::int64_t left = 0;  ///< records that cannot be read, and are not in the text
};

/// All samples in the order in which they were stored: a row each, with its time (seconds since 1970, and as a UTC
/// date), its type, and a column for each number that any of them has. Numbers keep their value to the last bit. One
/// sentence when the store cannot be read to its end.
std::expected<CsvExport, std::string> exportCsv(const Snapshot& snapshot);

/// A time as "2026-11-26T20:47:07.125000Z"; empty for one without a date.
std::string utcText(double secondsSince1970);

}  // namespace tarvex::tool
