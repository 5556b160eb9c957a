#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "collector/store/postgresql/binary_copy.h"
#include "collector/store/postgresql/postgresql_connection.h"

namespace tarvex::collector {

std::span<const std::uint8_t> bytesOf(std::string_view text);
/// SHA-256. The tables and the locks know a participant by that of its identifier.
Digest digestOf(std::string_view text);
/// Makes this transaction wait for all others that change something of the participant.
void lockParticipant(PostgresqlConnection& connection, const Digest& participant);

/// A sample of another type, as its table orders it.
struct OtherRow {
    double time;
    Digest digest;  ///< of type and values
    const OtherSample* sample;

    friend bool operator==(const OtherRow& left, const OtherRow& right) {
        return left.time == right.time && left.digest == right.digest;
    }
    friend std::partial_ordering operator<=>(const OtherRow& left, const OtherRow& right) {
        if (const auto order = left.time <=> right.time; order != nullptr) return order;
        return left.digest <=> right.digest;
    }
};

// How each kind of sample is read, written and called in `statements.sql`.

inline AmbientLight lightOf(const PostgresqlRow& row) {
    return {.time = row.real(0), .lux = row.real(1), .channels = {row.real(2), row.real(3), row.real(4), row.real(5)}};
}

inline Distance distanceOf(const PostgresqlRow& row) {
    return {.time = row.real(0), .leftEye = row.real(1), .rightEye = row.real(2)};
}

template <typename Sample>
struct Rows;

template <>
struct Rows<AmbientLight> {
    using Row = AmbientLight;
    static constexpr const char* kind = "light";

    static std::span<const Row> of(std::span<const AmbientLight> samples) { return samples; }
    static Row read(const PostgresqlRow& row) { return lightOf(row); }
    static void write(BinaryCopy& into, std::int64_t participant, const Row& row) {
        into.beginRow(7);
        into.add(participant);
        into.add(row.time);
        into.add(row.lux);
        for (const double channel : row.channels)
            into.add(channel);
    }
};

template <>
struct Rows<Distance> {
    using Row = Distance;
    static constexpr const char* kind = "distances";

    static std::span<const Row> of(std::span<const Distance> samples) { return samples; }
    static Row read(const PostgresqlRow& row) { return distanceOf(row); }
    static void write(BinaryCopy& into, std::int64_t participant, const Row& row) {
        into.beginRow(4);
        into.add(participant);
        into.add(row.time);
        into.add(row.leftEye);
        into.add(row.rightEye);
    }
};

template <>
struct Rows<OtherSample> {
    using Row = OtherRow;
    static constexpr const char* kind = "others";

    static std::vector<Row> of(std::span<const OtherSample> samples);
    static Row read(const PostgresqlRow& row) {
        return {.time = row.real(0), .digest = row.digest(1), .sample = nullptr};
    }
    static void write(BinaryCopy& into, std::int64_t participant, const Row& row);
};

}  // namespace tarvex::collector
