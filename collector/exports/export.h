#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "collector/store/store.h"

namespace tarvex::collector {

enum class Kind : std::uint8_t { light, distance, other };
enum class Format : std::uint8_t { csv, jsonLines };

/// Takes pieces of an export, in order; may throw to end it.
using Sink = std::function<void(std::string_view)>;

/// Writes the samples that are selected, in constant memory. Throws `StoreUnavailable`, and what the sink throws.
void exportSamples(Store& store, Kind kind, Format format, const Selection& selection, const Sink& sink);

/// The columns of all exports: file, name, unit, range, meaning. CSV.
std::string dataDictionary();

/// As the names of files have them: "light", "distance", "other"; "csv", "jsonl".
std::string_view nameOf(Kind kind);
std::string_view nameOf(Format format);

/// `1970-01-01T00:00:00.000000Z`, in UTC.
std::string isoTime(double seconds);

}  // namespace tarvex::collector
