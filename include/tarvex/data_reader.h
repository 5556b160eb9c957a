#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "tarvex/export.h"

namespace tarvex {

/// A signal that the library can sample, with the interval that the host chose for it.
///
/// A plain value. Reentrant.
class TARVEX_EXPORT DataReader {
public:
    /// The sampled signal, whatever the rate. The numbers are fixed.
    enum class Kind : std::uint8_t { distance = 0, ambientLight = 1 };

    /// The distance of each eye from the front camera, measured every `refreshRate` whole seconds.
    static DataReader distance(std::optional<std::int64_t> refreshRate) noexcept;
    /// The ambient light, sampled every `refreshRate` whole seconds.
    static DataReader ambientLight(std::optional<std::int64_t> refreshRate) noexcept;

    Kind kind() const noexcept { return kind_; }

    /// Whole seconds between two samples, as given: any number is accepted. A reader without a rate is a valid
    /// value that cannot be started.
    std::optional<std::int64_t> refreshRate() const noexcept { return refreshRate_; }

    /// "distance" or "ambient_light": the type of every sample of this reader, in the store and in the upload.
    std::string_view id() const noexcept;

    /// "Distance" or "Ambient Light": the name shown to people.
    std::string_view description() const noexcept;

    /// The reader of the same kind without a rate: the key under which tables hold one entry for each kind.
    DataReader kindKey() const noexcept { return {kind_, std::nullopt}; }

    /// Equal when the kind and the rate are; an absent rate differs from every present one, 0 included.
    friend bool operator==(const DataReader&, const DataReader&) = default;

private:
    DataReader(Kind kind, std::optional<std::int64_t> refreshRate) noexcept : kind_(kind), refreshRate_(refreshRate) {}

    Kind kind_;
    std::optional<std::int64_t> refreshRate_;
};

}  // namespace tarvex

/// Agrees with equality: covers the kind and the rate.
template <>
struct TARVEX_EXPORT std::hash<tarvex::DataReader> {
    std::size_t operator()(const tarvex::DataReader& reader) const noexcept;
};
