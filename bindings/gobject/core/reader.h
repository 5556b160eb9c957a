#pragma once

#include <cstdint>
#include <optional>

#include "tarvex-reader.h"
#include "tarvex/data_reader.h"

namespace tarvex::glib {

/// A host may pass any number.
inline bool isReader(int number) {
    return number == TARVEX_READER_DISTANCE || number == TARVEX_READER_AMBIENT_LIGHT;
}

inline DataReader makeReader(TarvexReader reader, std::optional<std::int64_t> interval = std::nullopt) {
    return reader == TARVEX_READER_DISTANCE ? DataReader::distance(interval) : DataReader::ambientLight(interval);
}

}  // namespace tarvex::glib
